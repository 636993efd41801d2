#pragma once

#include "vrq/platform/engine/RtcAnswerer_p.h"
#include "vrq/platform/engine/RtcCallbackGuard_p.h"
#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/engine/RtcReceiveBranch_p.h"
#include "vrq/platform/engine/RtcSendBranch_p.h"
#include "vrq/platform/engine/RtcStartMarks_p.h"

#include <gst/gst.h>
#include <gst/webrtc/webrtc.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vrq {
class SerialQueue;
class Timer;
} // namespace vrq

namespace vrq::rtc {

class DataChannelImpl;

// A peer connection over one GStreamer pipeline holding a webrtcbin.
//
// Threads: webrtcbin's signals and promise replies arrive on its own threads,
// pads and probes on streaming threads. Those callbacks only copy what they
// need and hand it, under this object's mutex, to the engine's queue (one
// serial queue per connection), where completions and the observer run.
// Decoded-video events and frames are the exception: they are delivered on
// the streaming thread, as the observer's contract says.
//
// Lifetime: every GStreamer callback borrows a CallbackGuard; close() resets
// the guards (waiting for callbacks running on other threads), then stops the
// pipeline and disconnects every handler, so nothing calls back afterwards.
class PeerConnectionImpl final : public AnsweringPeerConnection, private ReceiveBranch::Listener {
public:
    static constexpr const char* kErrorDomain = "VRQRtc";
    enum ErrorCode : int { Unavailable = 1, InvalidDescription = 2, EngineError = 3, UnexpectedOffer = 4 };

    // With media to send, the connection answers; without, it offers.
    PeerConnectionImpl(Configuration configuration, std::optional<SendMedia> sendMedia, PeerConnectionObserver* observer);
    ~PeerConnectionImpl() override;
    PeerConnectionImpl(const PeerConnectionImpl&) = delete;
    PeerConnectionImpl& operator=(const PeerConnectionImpl&) = delete;

    // Builds and starts the pipeline. False (logged) when it could not be built;
    // every operation then completes with an error.
    bool start();
    // See RtcFaultInjection_p.h.
    bool postElementError(const std::string& factoryName);

    void addRecvOnlyTransceiver(MediaType type) override;
    std::shared_ptr<DataChannel> createDataChannel(const std::string& label, bool ordered,
                                                   DataChannelObserver* observer) override;
    void offer(DescriptionCompletion completion) override;
    void answer(DescriptionCompletion completion) override;
    void setLocalDescription(const SessionDescription& description, Completion completion) override;
    void setRemoteDescription(const SessionDescription& description, Completion completion) override;
    void localDescriptionWithCandidates(DescriptionCompletion completion) override;

    PeerConnectionState connectionState() const override;
    IceConnectionState iceConnectionState() const override;
    std::vector<TransceiverInfo> transceivers() const override;

    void legacyStatistics(std::function<void(std::vector<LegacyStatsReport>)> completion) override;
    void statistics(std::function<void(StatsReport)> completion) override;

    StartTimeline startTimeline() const override;
    void setVideoSink(std::shared_ptr<VideoSink> sink) override;
    void setAudioVolume(double volume) override;

    void close() override;

private:
    using Guard = CallbackGuard<PeerConnectionImpl>;
    using Task = std::function<void(PeerConnectionImpl&)>;
    using ReplyHandler = std::function<void(PeerConnectionImpl&, const GstStructure* reply, std::optional<Error> error)>;

    struct SignalHandler {
        gpointer instance; // owned reference
        gulong id;
    };
    // What close() takes out of the object to stop and release.
    struct Pipeline {
        GstElement* pipeline = nullptr;
        GstElement* webrtc = nullptr;
        std::vector<SignalHandler> handlers;
    };
    // Everything close() stops and releases.
    struct Resources {
        Pipeline pipeline;
        std::shared_ptr<Timer> silenceTimer;
        std::map<unsigned, std::shared_ptr<ReceiveBranch>> branches;
        std::vector<std::shared_ptr<DataChannelImpl>> channels;
        std::unique_ptr<SendBranch> send;
    };
    // The arrival time of the last packet on any of the connection's
    // sockets, and the start's marks, which the first video packet sets.
    struct InboundClock {
        std::atomic<std::int64_t> lastNs{0};
        std::shared_ptr<StartMarks> marks;
    };

    // ReceiveBranch::Listener, on streaming threads.
    void branchDidDecodeFirstFrame() override;
    void branchDidChangeVideoSize(int width, int height) override;
    void branchDidReceiveSei(const std::uint8_t* data, std::size_t length) override;
    void branchDidDecodeFrame(std::shared_ptr<const VideoFrame> frame) override;

    gst::ObjectPtr<GstElement> webrtc() const;
    template <class Function>
    void connectSignal(gpointer instance, const char* signal, Function* handler);
    void configureIce();
    void post(Task task);
    void postError(std::function<void(Error)> completion, ErrorCode code, std::string message);
    GstPromise* makePromise(ReplyHandler handler);
    void requestStatistics(std::function<void(PeerConnectionImpl&, std::vector<StatsEntry>)> done);
    std::vector<ReceiveBranch::Figures> streamFigures() const;
    std::shared_ptr<ReceiveBranch> branchFor(unsigned ssrc);
    void updateStates(); // m_mutex held
    void postIceState(IceConnectionState state);
    void checkSilence();
    void elementFailed();
    void startIceDeadline();
    void checkIceDeadline(); // with m_mutex held
    static bool iceReached(GstWebRTCICEConnectionState state);
    std::optional<Error> attachSendMedia();
    void readGatheredDescription();

    void connectionStateChanged();
    void iceConnectionStateChanged();
    void iceGatheringStateChanged();
    void padAdded(GstPad* pad);
    void dataChannelAnnounced(GstWebRTCDataChannel* channel);
    void jitterBufferCreated(GstElement* jitterBuffer, unsigned ssrc);

    bool isStreamingCallback(const Resources& resources) const;
    void stopCallbacks(Resources& resources);
    static void teardown(Pipeline pipeline);
    static void onConnectionStateNotify(GObject* object, GParamSpec* property, gpointer data);
    static void onIceConnectionStateNotify(GObject* object, GParamSpec* property, gpointer data);
    static void onIceGatheringStateNotify(GObject* object, GParamSpec* property, gpointer data);
    static void onPadAdded(GstElement* webrtc, GstPad* pad, gpointer data);
    static void onDataChannel(GstElement* webrtc, GstWebRTCDataChannel* channel, gpointer data);
    static void onNewJitterBuffer(GstElement* rtpbin, GstElement* jitterBuffer, guint session, guint ssrc, gpointer data);
    static void onDeepElementAdded(GstBin* bin, GstBin* subBin, GstElement* element, gpointer data);
    static GstPadProbeReturn onInboundPacket(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static void onDtlsKeys(GstElement* decoder, gpointer data);
    void watchInboundPackets(GstElement* source);
    void watchDtls(GstElement* decoder);
    static GstBusSyncReply onBusMessage(GstBus* bus, GstMessage* message, gpointer data);
    static void onPromiseReplied(GstPromise* promise, gpointer data);

    const Configuration m_configuration;
    const std::optional<SendMedia> m_sendMedia;
    PeerConnectionObserver* const m_observer;
    const std::shared_ptr<SerialQueue> m_queue;
    const std::shared_ptr<Guard> m_guard;
    const std::shared_ptr<StartMarks> m_marks;
    const std::shared_ptr<InboundClock> m_inbound;
    std::atomic<double> m_volume{1.0};

    mutable std::mutex m_mutex;
    bool m_closed = false;                                         // guarded by m_mutex
    Pipeline m_pipeline;                                           // guarded by m_mutex
    std::shared_ptr<Timer> m_silenceTimer;                         // guarded by m_mutex
    std::vector<TransceiverInfo> m_transceivers;                   // guarded by m_mutex
    std::vector<std::shared_ptr<DataChannelImpl>> m_channels;      // guarded by m_mutex
    std::map<unsigned, std::shared_ptr<ReceiveBranch>> m_branches; // guarded by m_mutex
    std::shared_ptr<VideoSink> m_videoSink;                        // guarded by m_mutex
    std::unique_ptr<SendBranch> m_send;                            // guarded by m_mutex
    std::optional<SendBranch::PayloadTypes> m_offeredPayloadTypes; // guarded by m_mutex
    GstWebRTCPeerConnectionState m_gstState = GST_WEBRTC_PEER_CONNECTION_STATE_NEW;  // guarded by m_mutex
    GstWebRTCICEConnectionState m_gstIceState = GST_WEBRTC_ICE_CONNECTION_STATE_NEW; // guarded by m_mutex
    bool m_silent = false;                                         // guarded by m_mutex
    std::int64_t m_iceDeadlineNs = 0; // steady time by which ICE must connect; 0: none (guarded by m_mutex)
    bool m_unreachable = false;       // the deadline passed without a connection (guarded by m_mutex)
    bool m_elementFailed = false;     // an element of the pipeline posted an error (guarded by m_mutex)
    PeerConnectionState m_state = PeerConnectionState::New;        // guarded by m_mutex
    IceConnectionState m_iceState = IceConnectionState::New;       // guarded by m_mutex
    bool m_gatheringComplete = false;                              // guarded by m_mutex
    std::vector<DescriptionCompletion> m_waitingForCandidates;     // guarded by m_mutex
};

} // namespace vrq::rtc
