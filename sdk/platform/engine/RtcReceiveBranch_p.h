#pragma once

#include "vrq/platform/engine/RtcCallbackGuard_p.h"
#include "vrq/platform/engine/RtcMediaMeter_p.h"
#include "vrq/platform/engine/RtcRetransmissionLatency_p.h"
#include "vrq/platform/engine/RtcStartMarks_p.h"
#include "vrq/platform/engine/RtcTypes.h"
#include "vrq/platform/engine/RtcVideoFrame.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vrq::rtc {

// The playback of one inbound RTP stream (one SSRC): its jitter buffer's
// measurements and, once webrtcbin exposes the stream's pad, the decoding
// elements. Video: depayloader, parser, decoder and an application sink that
// hands the decoder's own planar buffers on (a converter stands between them
// only in case a decoder gives another layout); audio: depayloader, decoder,
// volume and an audio sink. Probes around the jitter buffer and the decoder
// feed a MediaMeter and the start's time line.
class ReceiveBranch {
public:
    // Decoded-video events, on the streaming thread.
    class Listener {
    public:
        virtual ~Listener() = default;
        virtual void branchDidDecodeFirstFrame() = 0;
        virtual void branchDidChangeVideoSize(int width, int height) = 0;
        virtual void branchDidReceiveSei(const std::uint8_t* data, std::size_t length) = 0;
        virtual void branchDidDecodeFrame(std::shared_ptr<const VideoFrame> frame) = 0;
    };

    struct Figures {
        unsigned ssrc = 0;
        std::optional<MediaType> media;
        MediaMeter::Snapshot meter;
        int latencyMs = 0;
        int width = 0;
        int height = 0;
        std::string decoder; // the decoder element's factory name
        std::optional<double> retransmissionRoundTripSeconds;
        std::optional<double> retransmissionRequests;
        // Retransmitted packets that reached the jitter buffer, in time or late.
        std::uint64_t retransmittedPacketsReceived = 0;
    };

    // The marks are shared with the connection: the branch records the first
    // key frame and the first decoded picture.
    ReceiveBranch(unsigned ssrc, Listener* listener, std::shared_ptr<StartMarks> marks);
    ~ReceiveBranch();
    ReceiveBranch(const ReceiveBranch&) = delete;
    ReceiveBranch& operator=(const ReceiveBranch&) = delete;

    unsigned ssrc() const { return m_ssrc; }
    std::optional<MediaType> media() const;

    // Measures the time packets spend in this stream's jitter buffer, and
    // raises its latency while its lost packets are retransmitted too late
    // (see RetransmissionLatency).
    void attachJitterBuffer(GstElement* jitterBuffer);
    // Builds the decoding elements in the pipeline and links the pad to them.
    bool build(GstElement* pipeline, GstPad* source, MediaType media, double volume);
    void setVolume(double volume);
    Figures figures(MediaMeter::Clock::time_point now) const;

    // Ends every probe and callback: once it returns the listener is not called again.
    void stop();
    // Whether the calling thread is inside one of this branch's callbacks.
    bool isCallingBack() const { return m_guard->isBorrowedHere(); }

private:
    using Guard = CallbackGuard<ReceiveBranch>;

    bool buildVideo(GstElement* pipeline, GstPad* source);
    bool buildAudio(GstElement* pipeline, GstPad* source, double volume);
    void probeDecoder(GstElement* decoder, bool video);
    void addProbe(GstPad* pad, GstPadProbeType mask, GstPadProbeCallback callback);

    static GstPadProbeReturn meterJitterBufferPassage(GstPadProbeInfo* info, gpointer data,
                                                      void (MediaMeter::*passage)(std::uint16_t, MediaMeter::Clock::time_point));
    static GstPadProbeReturn onJitterBufferInput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onJitterBufferOutput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onJitterBufferRequest(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    void jitterBufferOutput(GstBuffer* buffer);
    static GstPadProbeReturn onParsedUnit(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onSinkQuery(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onDecoderInput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onVideoDecoderOutput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onAudioDecoderOutput(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstFlowReturn onNewSample(GstAppSink* sink, gpointer data);

    void videoDecoded(GstBuffer* buffer);
    void videoCaps(GstCaps* caps);
    void deliverSample(GstSample* sample);

    const unsigned m_ssrc;
    Listener* const m_listener;
    const std::shared_ptr<Guard> m_guard;
    const std::shared_ptr<StartMarks> m_marks;
    MediaMeter m_meter;
    std::atomic<bool> m_listening{true}; // false once stopped: a listener call may have closed the connection
    std::atomic<bool> m_firstFrameSeen{false};
    std::atomic<int> m_width{0};
    std::atomic<int> m_height{0};
    std::atomic<std::uint64_t> m_retransmittedReceived{0};
    // Set before the jitter buffer's probes exist; used from their threads.
    std::unique_ptr<RetransmissionLatency> m_retransmissionLatency;
    std::optional<std::uint16_t> m_lastOutput; // used on the jitter buffer's output thread only

    mutable std::mutex m_mutex;
    std::optional<MediaType> m_media;          // guarded by m_mutex
    std::string m_decoder;                     // guarded by m_mutex
    GstElement* m_jitterBuffer = nullptr;      // owned reference, guarded by m_mutex
    GstElement* m_volume = nullptr;            // owned reference, guarded by m_mutex
    std::vector<std::pair<GstPad*, gulong>> m_probes; // owned pad references, guarded by m_mutex
    bool m_stopped = false;                    // guarded by m_mutex
};

} // namespace vrq::rtc
