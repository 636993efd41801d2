#pragma once

#include "vrq/platform/engine/RtcDataChannel.h"
#include "vrq/platform/engine/RtcStartTimeline.h"
#include "vrq/platform/engine/RtcStatistics.h"
#include "vrq/platform/engine/RtcTypes.h"
#include "vrq/platform/engine/RtcVideoFrame.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vrq::rtc {

// Peer-connection events. States, streams and channels arrive on the engine's
// thread (one serial queue per connection, never the main thread's loop), in
// the order they happened; decoded-video events on the streaming thread.
// Implementations hop to the thread they need.
class PeerConnectionObserver {
public:
    virtual ~PeerConnectionObserver() = default;
    virtual void didChangeConnectionState(PeerConnectionState state) = 0;
    virtual void didChangeIceConnectionState(IceConnectionState state) = 0;
    // A remote stream appeared, with its numbers of video and audio tracks.
    virtual void didAddStream(int videoTracks, int audioTracks) = 0;
    // A channel opened by the remote side (the answerer sees the offerer's channels here).
    virtual void didOpenDataChannel(std::shared_ptr<DataChannel> /*channel*/) {}
    // Decoded-video events, on the streaming thread.
    virtual void didReceiveFirstFrame() {}
    virtual void didChangeVideoSize(int /*width*/, int /*height*/) {}
    // A user-data-unregistered SEI payload of the received video (the bytes after the UUID).
    virtual void didReceiveSei(const std::uint8_t* /*data*/, std::size_t /*length*/) {}
};

struct Configuration {
    // Local addresses ICE may gather on. Empty: the addresses in $VRQ_ICE_ADDRESSES
    // (comma separated), and, when that is unset too, every address.
    std::vector<std::string> iceAddresses;
    // The receive jitter buffer's latency.
    int jitterBufferLatencyMs = 20;
    // The pace of ICE connectivity checks, at least 5 ms (the least the ICE
    // standard allows). Few candidates are checked, so a quick pace costs
    // little and brings the connection up in about four of its steps.
    int iceCheckPacingMs = 5;
    // A connected peer that receives media and then hears nothing at all for
    // this long is reported disconnected (ICE's own keepalives take tens of
    // seconds to notice a peer that vanished). 0 turns the check off.
    int disconnectTimeoutMs = 3000;
    // Once the remote description is applied, ICE must connect within this
    // long, or the connection is reported failed: candidates that nobody
    // answers would otherwise keep it checking for a long time. 0 turns the
    // bound off.
    int iceConnectTimeoutMs = 5000;
};

// One WebRTC peer connection over webrtcbin, on the offering side. Every
// operation is thread-safe and asynchronous operations complete on the
// engine's own thread.
class PeerConnection {
public:
    using DescriptionCompletion = std::function<void(std::optional<SessionDescription>, std::optional<Error>)>;
    using Completion = std::function<void(std::optional<Error>)>;

    // The observer is non-owning and must outlive the connection or be cleared with close().
    static std::shared_ptr<PeerConnection> create(const Configuration& configuration, PeerConnectionObserver* observer);
    virtual ~PeerConnection() = default;

    // Offerer: video, then audio, in the order called.
    virtual void addRecvOnlyTransceiver(MediaType type) = 0;
    // The observer (not owned) hears every state change from the start, also
    // an open that comes before this returns.
    virtual std::shared_ptr<DataChannel> createDataChannel(const std::string& label, bool ordered,
                                                           DataChannelObserver* observer) = 0;
    virtual void offer(DescriptionCompletion completion) = 0;
    virtual void setLocalDescription(const SessionDescription& description, Completion completion) = 0;
    virtual void setRemoteDescription(const SessionDescription& description, Completion completion) = 0;

    virtual PeerConnectionState connectionState() const = 0;
    virtual IceConnectionState iceConnectionState() const = 0;
    virtual std::vector<TransceiverInfo> transceivers() const = 0;

    // Legacy-style "ssrc" reports and standard statistics, completed on the engine's thread.
    virtual void legacyStatistics(std::function<void(std::vector<LegacyStatsReport>)> completion) = 0;
    virtual void statistics(std::function<void(StatsReport)> completion) = 0;

    // When each step of this connection's start was reached so far.
    virtual StartTimeline startTimeline() const = 0;

    virtual void setVideoSink(std::shared_ptr<VideoSink> sink) = 0;
    // Volume of the received audio, 0.0 to 1.0 (and above, amplified).
    virtual void setAudioVolume(double volume) = 0;

    // Stops media and channels and clears the observer; no observer event
    // follows once it returns (it waits for callbacks running on other
    // threads, and may be called from inside a callback). Operations asked
    // for afterwards complete at once with an error. Destroying the
    // connection closes it.
    virtual void close() = 0;
};

// Initialises the engine once per process (GStreamer, its plugins, the
// choice of decoder, the DTLS certificate). Safe to call repeatedly and from
// any thread. False when a plugin needed to receive media is missing (logged).
bool initializeEngine();
// What the engine lacks to receive media (missing elements and the packages
// that bring them, or no H.264 decoder); empty when it lacks nothing. An
// offer on such an engine fails with this text.
std::string missingEngineParts();
// Starts that initialisation on a thread of its own and returns at once, so
// that a host can have it done at launch, before its first connection needs
// it (it takes 50 ms, and webrtcbin's own DTLS key 100 to 300 ms more).
void prepareEngine();
// The H.264 decoder element the engine chose ("avdec_h264", or a hardware
// decoder that starts on this machine); empty when there is none.
std::string videoDecoderName();

// The engine's own debug output, by the kit's severities: 0 verbose, 1 info,
// 2 warning, 3 error, 4 none (the default). It sets GStreamer's debug
// threshold, which also gates the engine's lines to the kit's loggers.
// Missing plugins are reported whatever the level.
void setEngineDebugLevel(int severity);

} // namespace vrq::rtc
