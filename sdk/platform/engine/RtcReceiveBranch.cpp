#include "vrq/platform/engine/RtcReceiveBranch_p.h"

#include "vrq/platform/engine/RtcEngine_p.h"
#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/services/LogBackend.h"

#include <gst/app/gstappsink.h>
#include <gst/rtp/gstrtpbuffer.h>
#include <gst/video/video-sei.h>
#include <gst/video/video.h>


namespace vrq::rtc {
namespace {

using Data = gst::GuardedData<ReceiveBranch>;
using Clock = MediaMeter::Clock;

GstElement* makeElement(const char* factory)
{
    GstElement* element = gst_element_factory_make(factory, nullptr);
    if (!element)
        RTC_LOG(logging::kError, "cannot create GStreamer element \"%s\"", factory);
    return element;
}

// RTCP's share of the session's bandwidth sets how often reports, and the
// NACKs they carry, go out; after an early report, a NACK waits for the next
// regular one. Left to the session, reports went out every 0.4 to 1 s, long
// after the packet a NACK asks for was given up; with this figure, about
// every 40 ms (some 16 kbit/s).
constexpr double kFeedbackBandwidth = 2e6;

// The jitter buffer's session (session 0: every stream is bundled) sends its
// feedback often enough for retransmissions to arrive in time.
void sendFeedbackSooner(GstElement* jitterBuffer)
{
    gst::ObjectPtr<GstObject> rtpbin{gst_object_get_parent(reinterpret_cast<GstObject*>(jitterBuffer))};
    if (!rtpbin)
        return;
    GObject* session = nullptr;
    g_signal_emit_by_name(rtpbin.get(), "get-internal-session", 0U, &session);
    if (!session)
        return;
    g_object_set(session, "bandwidth", kFeedbackBandwidth, nullptr);
    g_object_unref(session);
}

std::optional<std::uint16_t> rtpSequence(GstBuffer* buffer)
{
    GstRTPBuffer rtp{};
    if (!gst_rtp_buffer_map(buffer, GST_MAP_READ, &rtp))
        return std::nullopt;
    const std::uint16_t sequence = gst_rtp_buffer_get_seq(&rtp);
    gst_rtp_buffer_unmap(&rtp);
    return sequence;
}

// A decoded buffer, mapped for reading for as long as a frame refers to it.
class MappedFrame {
public:
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;
    ~MappedFrame() { gst_video_frame_unmap(&m_frame); }

    static std::shared_ptr<const MappedFrame> map(GstVideoInfo& info, GstBuffer* buffer)
    {
        GstVideoFrame frame{};
        // The map holds a reference to the buffer until the unmap.
        if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ))
            return nullptr;
        return std::shared_ptr<const MappedFrame>(new MappedFrame(frame));
    }
    const GstVideoFrame& frame() const { return m_frame; }

private:
    explicit MappedFrame(const GstVideoFrame& frame)
        : m_frame(frame)
    {
    }
    GstVideoFrame m_frame;
};

// The decoder's picture as a frame for the view, without a copy.
std::shared_ptr<const VideoFrame> wrapDecodedFrame(GstSample* sample)
{
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstCaps* caps = gst_sample_get_caps(sample);
    GstVideoInfo info;
    if (!buffer || !caps || !gst_video_info_from_caps(&info, caps))
        return nullptr;
    VideoFrameInfo frameInfo;
    switch (GST_VIDEO_INFO_FORMAT(&info)) {
    case GST_VIDEO_FORMAT_I420:
        frameInfo.format = PixelFormat::I420;
        break;
    case GST_VIDEO_FORMAT_NV12:
        frameInfo.format = PixelFormat::NV12;
        break;
    default:
        return nullptr;
    }
    auto mapped = MappedFrame::map(info, buffer);
    if (!mapped)
        return nullptr;
    frameInfo.width = GST_VIDEO_INFO_WIDTH(&info);
    frameInfo.height = GST_VIDEO_INFO_HEIGHT(&info);
    frameInfo.timestampUs = buffer->pts == GST_CLOCK_TIME_NONE ? 0 : static_cast<std::int64_t>(buffer->pts / 1000);
    frameInfo.decodedAt = std::chrono::steady_clock::now();
    frameInfo.matrix = info.colorimetry.matrix == GST_VIDEO_COLOR_MATRIX_BT709 ? ColorMatrix::Bt709 : ColorMatrix::Bt601;
    frameInfo.fullRange = info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
    const GstVideoFrame& frame = mapped->frame();
    std::array<VideoFrame::Plane, 3> planes{};
    for (guint i = 0; i < GST_VIDEO_FRAME_N_PLANES(&frame) && i < planes.size(); ++i)
        planes[i] = {static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, i)), GST_VIDEO_FRAME_PLANE_STRIDE(&frame, i)};
    return std::make_shared<VideoFrame>(frameInfo, planes, std::move(mapped));
}

} // namespace

ReceiveBranch::ReceiveBranch(unsigned ssrc, Listener* listener, std::shared_ptr<StartMarks> marks)
    : m_ssrc(ssrc)
    , m_listener(listener)
    , m_guard(std::make_shared<Guard>(this))
    , m_marks(std::move(marks))
{
}

ReceiveBranch::~ReceiveBranch()
{
    stop();
    std::lock_guard lock(m_mutex);
    for (auto& [pad, probe] : m_probes)
        gst_object_unref(pad);
    if (m_jitterBuffer)
        gst_object_unref(m_jitterBuffer);
    if (m_volume)
        gst_object_unref(m_volume);
}

void ReceiveBranch::stop()
{
    m_listening.store(false);
    std::vector<std::pair<GstPad*, gulong>> probes;
    {
        std::lock_guard lock(m_mutex);
        if (m_stopped)
            return;
        m_stopped = true;
        probes = m_probes;
    }
    m_guard->reset(nullptr);
    for (auto& [pad, probe] : probes)
        gst_pad_remove_probe(pad, probe);
}

std::optional<MediaType> ReceiveBranch::media() const
{
    std::lock_guard lock(m_mutex);
    return m_media;
}

void ReceiveBranch::addProbe(GstPad* pad, GstPadProbeType mask, GstPadProbeCallback callback)
{
    const gulong probe = gst_pad_add_probe(pad, mask, callback, Data::make(m_guard), Data::destroy);
    std::lock_guard lock(m_mutex);
    m_probes.emplace_back(static_cast<GstPad*>(gst_object_ref(pad)), probe);
}

void ReceiveBranch::attachJitterBuffer(GstElement* jitterBuffer)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_jitterBuffer || m_stopped)
            return;
        m_jitterBuffer = static_cast<GstElement*>(gst_object_ref(jitterBuffer));
    }
    guint latency = 0;
    g_object_get(jitterBuffer, "latency", &latency, nullptr);
    sendFeedbackSooner(jitterBuffer);
    m_retransmissionLatency = std::make_unique<RetransmissionLatency>(static_cast<int>(latency));
    // Retransmissions are asked for gaps only: guessing when the next packet
    // is due asks for every first packet of a frame that comes a little late.
    g_object_set(jitterBuffer, "rtx-next-seqnum", FALSE, nullptr);
    const auto packets = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    if (gst::ObjectPtr<GstPad> input{gst_element_get_static_pad(jitterBuffer, "sink")}) {
        addProbe(input.get(), packets, &ReceiveBranch::onJitterBufferInput);
        addProbe(input.get(), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, &ReceiveBranch::onJitterBufferRequest);
    }
    if (gst::ObjectPtr<GstPad> output{gst_element_get_static_pad(jitterBuffer, "src")})
        addProbe(output.get(), packets, &ReceiveBranch::onJitterBufferOutput);
}

bool ReceiveBranch::build(GstElement* pipeline, GstPad* source, MediaType media, double volume)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_media || m_stopped)
            return false;
        m_media = media;
    }
    return media == MediaType::Video ? buildVideo(pipeline, source) : buildAudio(pipeline, source, volume);
}

namespace {

// Adds the elements to the bin, links them in order, starts them and links
// the pad to the first. Elements that could not be made are released.
bool assemble(GstElement* pipeline, GstPad* source, std::vector<GstElement*> chain)
{
    bool complete = true;
    for (GstElement* element : chain)
        complete = complete && element != nullptr;
    if (!complete) {
        for (GstElement* element : chain) {
            if (element)
                gst_object_unref(element);
        }
        return false;
    }
    for (GstElement* element : chain)
        gst_bin_add(gst::bin(pipeline), element);
    for (std::size_t i = 0; i + 1 < chain.size(); ++i) {
        if (!gst_element_link(chain[i], chain[i + 1])) {
            RTC_LOG(logging::kError, "cannot link the receive elements");
            return false;
        }
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        gst_element_sync_state_with_parent(*it);
    gst::ObjectPtr<GstPad> input{gst_element_get_static_pad(chain.front(), "sink")};
    const GstPadLinkReturn linked = gst_pad_link(source, input.get());
    if (linked != GST_PAD_LINK_OK) {
        RTC_LOG(logging::kError, "cannot link the received stream: %d", static_cast<int>(linked));
        return false;
    }
    return true;
}

} // namespace

bool ReceiveBranch::buildVideo(GstElement* pipeline, GstPad* source)
{
    GstElement* depayloader = makeElement("rtph264depay");
    GstElement* parser = makeElement("h264parse");
    GstElement* decoder = engine::makeVideoDecoder();
    if (decoder) {
        std::lock_guard lock(m_mutex);
        m_decoder = engine::videoDecoderFactory();
    }
    // Passes the decoder's buffers through untouched when they are already
    // I420 or NV12, which every decoder here gives for 8-bit 4:2:0 video.
    GstElement* converter = makeElement("videoconvert");
    GstElement* filter = makeElement("capsfilter");
    GstElement* sink = makeElement("appsink");
    if (depayloader)
        g_object_set(depayloader, "request-keyframe", TRUE, "wait-for-keyframe", TRUE, nullptr);
    if (filter) {
        gst::CapsPtr planar{gst_caps_from_string("video/x-raw,format=(string){I420,NV12}")};
        g_object_set(filter, "caps", planar.get(), nullptr);
    }
    if (sink) {
        // Frames go out as soon as they are decoded: pacing is the renderer's business.
        g_object_set(sink, "sync", FALSE, "max-buffers", 1U, "drop", TRUE, "enable-last-sample", FALSE, nullptr);
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = &ReceiveBranch::onNewSample;
        gst_app_sink_set_callbacks(reinterpret_cast<GstAppSink*>(sink), &callbacks, Data::make(m_guard), Data::destroy);
        if (gst::ObjectPtr<GstPad> input{gst_element_get_static_pad(sink, "sink")})
            addProbe(input.get(), GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM, &ReceiveBranch::onSinkQuery);
    }
    if (parser) {
        if (gst::ObjectPtr<GstPad> output{gst_element_get_static_pad(parser, "src")})
            addProbe(output.get(), GST_PAD_PROBE_TYPE_BUFFER, &ReceiveBranch::onParsedUnit);
    }
    if (decoder)
        probeDecoder(decoder, true);
    return assemble(pipeline, source, {depayloader, parser, decoder, converter, filter, sink});
}

bool ReceiveBranch::buildAudio(GstElement* pipeline, GstPad* source, double volume)
{
    GstElement* depayloader = makeElement("rtpopusdepay");
    GstElement* decoder = makeElement("opusdec");
    GstElement* converter = makeElement("audioconvert");
    GstElement* resampler = makeElement("audioresample");
    GstElement* volumeElement = makeElement("volume");
    const bool device = engine::hasAudioOutput();
    GstElement* sink = makeElement(device ? "autoaudiosink" : "fakesink");
    if (sink && !device)
        g_object_set(sink, "sync", FALSE, "enable-last-sample", FALSE, nullptr);
    if (volumeElement) {
        g_object_set(volumeElement, "volume", volume, nullptr);
        std::lock_guard lock(m_mutex);
        m_volume = static_cast<GstElement*>(gst_object_ref(volumeElement));
    }
    if (decoder)
        probeDecoder(decoder, false);
    return assemble(pipeline, source, {depayloader, decoder, converter, resampler, volumeElement, sink});
}

void ReceiveBranch::probeDecoder(GstElement* decoder, bool video)
{
    if (gst::ObjectPtr<GstPad> input{gst_element_get_static_pad(decoder, "sink")})
        addProbe(input.get(), GST_PAD_PROBE_TYPE_BUFFER, &ReceiveBranch::onDecoderInput);
    if (gst::ObjectPtr<GstPad> output{gst_element_get_static_pad(decoder, "src")}) {
        if (video) {
            const auto mask = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM);
            addProbe(output.get(), mask, &ReceiveBranch::onVideoDecoderOutput);
        } else {
            addProbe(output.get(), GST_PAD_PROBE_TYPE_BUFFER, &ReceiveBranch::onAudioDecoderOutput);
        }
    }
}

void ReceiveBranch::setVolume(double volume)
{
    std::lock_guard lock(m_mutex);
    if (m_volume)
        g_object_set(m_volume, "volume", volume, nullptr);
}

ReceiveBranch::Figures ReceiveBranch::figures(Clock::time_point now) const
{
    Figures result;
    result.ssrc = m_ssrc;
    result.meter = m_meter.snapshot(now);
    result.width = m_width.load();
    result.height = m_height.load();
    result.retransmittedPacketsReceived = m_retransmittedReceived.load();
    gst::ObjectPtr<GstElement> jitterBuffer;
    {
        std::lock_guard lock(m_mutex);
        result.media = m_media;
        result.decoder = m_decoder;
        if (m_jitterBuffer)
            jitterBuffer.reset(static_cast<GstElement*>(gst_object_ref(m_jitterBuffer)));
    }
    if (jitterBuffer) {
        guint latency = 0;
        GstStructure* stats = nullptr;
        g_object_get(jitterBuffer.get(), "latency", &latency, "stats", &stats, nullptr);
        result.latencyMs = static_cast<int>(latency);
        gst::StructurePtr owned(stats);
        if (owned) {
            if (auto rtt = gst::number(owned.get(), "rtx-rtt"); rtt && *rtt > 0)
                result.retransmissionRoundTripSeconds = *rtt / 1e9;
            result.retransmissionRequests = gst::number(owned.get(), "rtx-count");
        }
    }
    return result;
}

// Records each RTP packet's passage, by sequence number, on one side of the jitter buffer.
GstPadProbeReturn ReceiveBranch::meterJitterBufferPassage(GstPadProbeInfo* info, gpointer data,
                                                          void (MediaMeter::*passage)(std::uint16_t, Clock::time_point))
{
    Data::Entry self{data};
    if (!self)
        return GST_PAD_PROBE_OK;
    const auto now = Clock::now();
    gst::forEachBuffer(info, [&](GstBuffer* buffer) {
        if (auto sequence = rtpSequence(buffer))
            (self->m_meter.*passage)(*sequence, now);
    });
    return GST_PAD_PROBE_OK;
}

// The retransmission receiver marks each packet it restores from a retransmission.
GstPadProbeReturn ReceiveBranch::onJitterBufferInput(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    if (Data::Entry self{data}) {
        const auto now = Clock::now();
        gst::forEachBuffer(info, [&](GstBuffer* buffer) {
            if (!gst_buffer_has_flags(buffer, static_cast<GstBufferFlags>(GST_RTP_BUFFER_FLAG_RETRANSMISSION)))
                return;
            self->m_retransmittedReceived.fetch_add(1, std::memory_order_relaxed);
            if (auto sequence = rtpSequence(buffer))
                self->m_retransmissionLatency->retransmitted(*sequence, now);
        });
    }
    return meterJitterBufferPassage(info, data, &MediaMeter::jitterBufferInput);
}

GstPadProbeReturn ReceiveBranch::onJitterBufferOutput(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    if (Data::Entry self{data})
        gst::forEachBuffer(info, [&](GstBuffer* buffer) { self->jitterBufferOutput(buffer); });
    return meterJitterBufferPassage(info, data, &MediaMeter::jitterBufferOutput);
}

// The jitter buffer asks upstream for a retransmission with a custom event.
GstPadProbeReturn ReceiveBranch::onJitterBufferRequest(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstEvent* event = gst::probeEvent(info);
    if (!self || !event || GST_EVENT_TYPE(event) != GST_EVENT_CUSTOM_UPSTREAM ||
        !gst_event_has_name(event, "GstRTPRetransmissionRequest"))
        return GST_PAD_PROBE_OK;
    guint sequence = 0;
    if (gst_structure_get_uint(gst_event_get_structure(event), "seqnum", &sequence))
        self->m_retransmissionLatency->requested(static_cast<std::uint16_t>(sequence), Clock::now());
    return GST_PAD_PROBE_OK;
}

// A gap in the sequence leaving the buffer is a packet it gave up. Buffers
// leave it with its lock released, so its latency can be set from here.
void ReceiveBranch::jitterBufferOutput(GstBuffer* buffer)
{
    const auto sequence = rtpSequence(buffer);
    if (!sequence)
        return;
    const auto now = Clock::now();
    std::optional<int> latency;
    if (m_lastOutput && static_cast<std::uint16_t>(*sequence - *m_lastOutput) > 1 &&
        static_cast<std::uint16_t>(*sequence - *m_lastOutput) < 0x8000)
        latency = m_retransmissionLatency->gaveUp(now);
    else
        latency = m_retransmissionLatency->elapsed(now);
    m_lastOutput = sequence;
    if (!latency)
        return;
    GstElement* jitterBuffer = nullptr;
    {
        std::lock_guard lock(m_mutex);
        if (m_jitterBuffer)
            jitterBuffer = static_cast<GstElement*>(gst_object_ref(m_jitterBuffer));
    }
    if (!jitterBuffer)
        return;
    RTC_LOG(logging::kInfo, "stream %u: jitter buffer latency %d ms (retransmissions take about %d ms)", m_ssrc, *latency,
            m_retransmissionLatency->roundTripMs().value_or(0));
    g_object_set(jitterBuffer, "latency", static_cast<guint>(*latency), nullptr);
    gst_object_unref(jitterBuffer);
}

GstPadProbeReturn ReceiveBranch::onParsedUnit(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (self && buffer && !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT))
        self->m_marks->mark(StartMarks::FirstKeyFrame);
    return GST_PAD_PROBE_OK;
}

// The sink reads every layout through its video metadata, so a decoder may
// hand over its own padded buffers instead of copying them into tight ones.
GstPadProbeReturn ReceiveBranch::onSinkQuery(GstPad*, GstPadProbeInfo* info, gpointer)
{
    GstQuery* query = gst_pad_probe_info_get_query(info);
    if (query && GST_QUERY_TYPE(query) == GST_QUERY_ALLOCATION
        && !gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr))
        gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn ReceiveBranch::onDecoderInput(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (self && buffer && buffer->pts != GST_CLOCK_TIME_NONE)
        self->m_meter.decoderInput(buffer->pts, Clock::now());
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn ReceiveBranch::onVideoDecoderOutput(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    if (!self)
        return GST_PAD_PROBE_OK;
    if (GstBuffer* buffer = gst::probeBuffer(info)) {
        self->videoDecoded(buffer);
    } else if (GstEvent* event = gst::probeEvent(info); event && GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        if (caps)
            self->videoCaps(caps);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn ReceiveBranch::onAudioDecoderOutput(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (!self || !buffer)
        return GST_PAD_PROBE_OK;
    const auto now = Clock::now();
    if (buffer->pts != GST_CLOCK_TIME_NONE)
        self->m_meter.decoderOutput(buffer->pts, now);
    self->m_meter.frameDecoded(now);
    return GST_PAD_PROBE_OK;
}

void ReceiveBranch::videoDecoded(GstBuffer* buffer)
{
    const auto now = Clock::now();
    if (buffer->pts != GST_CLOCK_TIME_NONE)
        m_meter.decoderOutput(buffer->pts, now);
    m_meter.frameDecoded(now);
    if (!m_firstFrameSeen.exchange(true) && m_listening.load()) {
        m_marks->mark(StartMarks::FirstFrameDecoded);
        m_listener->branchDidDecodeFirstFrame();
    }

    // h264parse attaches each user-data-unregistered SEI to its access unit,
    // and the decoder carries the metadata over to the decoded frame.
    gpointer state = nullptr;
    while (GstMeta* meta = gst_buffer_iterate_meta_filtered(buffer, &state, GST_VIDEO_SEI_USER_DATA_UNREGISTERED_META_API_TYPE)) {
        if (!m_listening.load())
            return;
        const auto* sei = reinterpret_cast<const GstVideoSEIUserDataUnregisteredMeta*>(meta);
        m_listener->branchDidReceiveSei(sei->data, sei->size);
    }
}

void ReceiveBranch::videoCaps(GstCaps* caps)
{
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps))
        return;
    const int width = info.width;
    const int height = info.height;
    const int oldWidth = m_width.exchange(width);
    const int oldHeight = m_height.exchange(height);
    if ((width != oldWidth || height != oldHeight) && m_listening.load())
        m_listener->branchDidChangeVideoSize(width, height);
}

GstFlowReturn ReceiveBranch::onNewSample(GstAppSink* sink, gpointer data)
{
    GstSample* sample = gst_app_sink_pull_sample(sink);
    if (!sample)
        return GST_FLOW_OK;
    Data::Entry self{data};
    if (self)
        self->deliverSample(sample);
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

void ReceiveBranch::deliverSample(GstSample* sample)
{
    auto frame = wrapDecodedFrame(sample);
    if (frame && m_listening.load())
        m_listener->branchDidDecodeFrame(std::move(frame));
}

} // namespace vrq::rtc
