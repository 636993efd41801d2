#pragma once

// The answering side of the engine, which sends media. Only the reference game
// server answers; this header is not installed for hosts.

#include "vrq/platform/engine/RtcPeerConnection.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vrq::rtc {

// One raw I420 video frame on its way to the encoder, writable in place:
// planes[0] is luma (width x height), planes[1] and planes[2] the chroma
// planes at half size, each row strides[i] bytes apart.
struct VideoCanvas {
    int width = 0;
    int height = 0;
    std::array<std::uint8_t*, 3> planes{};
    std::array<int, 3> strides{};
};

// One video RTP packet on its way to the network.
struct WirePacket {
    // A retransmission of a packet sent before, rather than its first sending.
    bool retransmission = false;
    // The last packet of a video frame (the RTP marker bit), first sendings only.
    bool endsFrame = false;
};

// What the answering side sends. Each branch is a GStreamer launch description
// that ends in encoded, unpayloaded media (H.264 byte-stream; Opus).
struct SendMedia {
    // The element of videoLaunch whose raw frames drawVideo draws on.
    static constexpr const char* kCanvasElement = "vrq_canvas";

    std::string videoLaunch; // e.g. "videotestsrc is-live=true ! ... ! x264enc ... ! h264parse"
    std::string audioLaunch; // e.g. "audiotestsrc is-live=true ! opusenc"
    // Called for every video access unit, on the streaming thread; a non-empty
    // text is inserted as a user-data-unregistered SEI payload.
    std::function<std::string()> seiText;
    // Asked for every video access unit, on the streaming thread: false drops
    // the unit (audio goes on). When units flow again after a drop, the
    // encoder is asked for a keyframe and delta units wait for it, so the
    // receiver's picture recovers at once.
    std::function<bool()> sendVideo;
    // Called for every raw frame leaving the element named kCanvasElement in
    // videoLaunch (e.g. "identity name=vrq_canvas" after an I420 caps filter),
    // on the streaming thread, to draw on it before it is encoded. Frames in
    // another format are passed on untouched.
    std::function<void(VideoCanvas& canvas)> drawVideo;
    // Asked for every video RTP packet as it leaves for the network, after
    // the retransmission buffer (so a packet lost here can still be
    // retransmitted), on a streaming thread: how long to hold it back, or
    // nothing to lose it. Held packets leave from a thread of their own, in
    // the order they came. Unset, packets pass untouched.
    std::function<std::optional<std::chrono::microseconds>(const WirePacket& packet)> videoWire;
};

// A connection that answers an offer and sends the media described.
class AnsweringPeerConnection : public PeerConnection {
public:
    // The observer is non-owning and must outlive the connection or be cleared with close().
    static std::shared_ptr<AnsweringPeerConnection> create(const Configuration& configuration, SendMedia media,
                                                           PeerConnectionObserver* observer);

    virtual void answer(DescriptionCompletion completion) = 0;
    // The local description with its ICE candidates, once gathering has
    // finished: for a peer that sends its description whole instead of
    // trickling candidates.
    virtual void localDescriptionWithCandidates(DescriptionCompletion completion) = 0;
};

} // namespace vrq::rtc
