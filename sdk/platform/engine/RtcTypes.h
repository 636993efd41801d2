#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vrq::rtc {

// Numbered as the kit's wire and callback contracts number them.
enum class SdpType : int { Offer = 0, PrAnswer = 1, Answer = 2 };
enum class PeerConnectionState : int { New = 0, Connecting = 1, Connected = 2, Disconnected = 3, Failed = 4, Closed = 5 };
enum class IceConnectionState : int {
    New = 0,
    Checking = 1,
    Connected = 2,
    Completed = 3,
    Failed = 4,
    Disconnected = 5,
    Closed = 6,
};
enum class DataChannelState : int { Connecting = 0, Open = 1, Closing = 2, Closed = 3 };
enum class MediaType : int { Audio = 0, Video = 1, Data = 2 };
enum class TransceiverDirection : int { SendRecv = 0, SendOnly = 1, RecvOnly = 2, Inactive = 3 };

// A failure of the engine: its domain ("VRQRtc"), a code and what happened.
struct Error {
    std::string domain;
    int code = 0;
    std::string description;

    std::string toString() const { return domain + " " + std::to_string(code) + (description.empty() ? "" : ": " + description); }
};

struct SessionDescription {
    SdpType type = SdpType::Offer;
    std::string sdp;
};

// "offer", "pranswer" or "answer".
std::string stringForType(SdpType type);
const char* stringForState(PeerConnectionState state);
const char* stringForState(IceConnectionState state);
const char* stringForState(DataChannelState state);

// A data-channel message: bytes, and whether they were sent as binary.
struct DataBuffer {
    std::string data;
    bool isBinary = false;
};

struct TransceiverInfo {
    MediaType mediaType = MediaType::Video;
    TransceiverDirection direction = TransceiverDirection::RecvOnly;
};

// An H.264 profile-level-id (six hexadecimal digits).
struct H264ProfileLevelId {
    enum Profile : int {
        ConstrainedBaseline = 0,
        Baseline = 1,
        Main = 2,
        ConstrainedHigh = 3,
        High = 4,
        PredictiveHigh444 = 5,
    };
    Profile profile = ConstrainedBaseline;
    int level = 0;

    // Nothing when the text is not a known profile-level-id.
    static std::optional<H264ProfileLevelId> fromHexString(const std::string& hex);
};

} // namespace vrq::rtc
