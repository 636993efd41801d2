#pragma once

#include <chrono>
#include <optional>

namespace vrq::rtc {

// When each step of a connection's start was first reached, on the steady
// clock. A step not reached yet is empty.
struct StartTimeline {
    using TimePoint = std::chrono::steady_clock::time_point;

    std::optional<TimePoint> answerGiven;         // the remote description was handed to the engine
    std::optional<TimePoint> answerApplied;       // and the engine applied it
    std::optional<TimePoint> iceConnected;        // a candidate pair works
    std::optional<TimePoint> dtlsConnected;       // the handshake produced the media keys
    std::optional<TimePoint> firstRtpPacket;      // the first video packet reached the machine
    std::optional<TimePoint> firstKeyFrame;       // the first whole key frame left the parser
    std::optional<TimePoint> firstFrameDecoded;   // the decoder gave its first picture
    std::optional<TimePoint> firstFrameDelivered; // that picture was handed to the video sink
};

} // namespace vrq::rtc
