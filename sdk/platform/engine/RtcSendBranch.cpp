#include "vrq/platform/engine/RtcSendBranch_p.h"

#include "vrq/platform/engine/RtcEngine_p.h"
#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcSeiMessage_p.h"
#include "vrq/platform/services/LogBackend.h"

#include <gst/video/video.h>
#include <gst/webrtc/webrtc.h>

namespace vrq::rtc {
namespace {

using Data = gst::GuardedData<SendBranch>;

constexpr const char* kPayloaderName = "vrq_payloader";

} // namespace

SendBranch::SendBranch(SendMedia media, PayloadTypes payloadTypes)
    : m_media(std::move(media))
    , m_payloadTypes(payloadTypes)
    , m_guard(std::make_shared<Guard>(this))
    , m_parser(gst_h264_nal_parser_new())
    , m_wire(m_media.videoWire ? std::make_unique<WireDelayLine>(m_media.videoWire, payloadTypes.video, payloadTypes.audio) : nullptr)
{
}

SendBranch::~SendBranch()
{
    stop();
    gst_h264_nal_parser_free(m_parser);
}

void SendBranch::stop()
{
    m_guard->reset(nullptr);
    if (m_wire)
        m_wire->stop();
    std::vector<Probe> probes;
    {
        std::lock_guard lock(m_mutex);
        probes.swap(m_probes);
    }
    for (const Probe& probe : probes) {
        gst_pad_remove_probe(probe.pad, probe.id);
        gst_object_unref(probe.pad);
    }
}

GstElement* SendBranch::buildBranch(const std::string& launch, const char* payloader, int payloadType, std::string& error)
{
    std::string description = launch;
    // Whole access units in byte-stream form: the SEI goes in front of each one's first slice.
    if (std::string(payloader) == "rtph264pay")
        description += " ! video/x-h264,stream-format=byte-stream,alignment=au ! rtph264pay config-interval=0";
    else
        description += std::string(" ! ") + payloader;
    description += std::string(" name=") + kPayloaderName + " pt=" + std::to_string(payloadType);
    GError* parseError = nullptr;
    GstElement* branch = gst_parse_bin_from_description(description.c_str(), TRUE, &parseError);
    if (parseError) {
        error = std::string("cannot build \"") + description + "\": " + parseError->message;
        g_error_free(parseError);
        if (branch)
            gst_object_unref(branch);
        return nullptr;
    }
    return branch;
}

bool SendBranch::link(GstElement* pipeline, GstElement* webrtc, GstElement* branch, const char* sinkName, bool video,
                      std::string& error)
{
    gst_bin_add(gst::bin(pipeline), branch);
    gst::ObjectPtr<GstPad> sink{gst_element_request_pad_simple(webrtc, sinkName)};
    gst::ObjectPtr<GstPad> source{gst_element_get_static_pad(branch, "src")};
    if (!sink || !source || gst_pad_link(source.get(), sink.get()) != GST_PAD_LINK_OK) {
        error = std::string("cannot link the sent media to webrtcbin's ") + sinkName;
        return false;
    }
    // The pad's transceiver answers the offer's receive-only section: it only
    // sends. Video keeps its packets for retransmission when the receiver
    // reports them lost (the answer then carries the offer's retransmission
    // format); audio does not.
    GstWebRTCRTPTransceiver* transceiver = nullptr;
    g_object_get(sink.get(), "transceiver", &transceiver, nullptr);
    if (transceiver) {
        g_object_set(transceiver, "direction", GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDONLY, "do-nack", video, nullptr);
        gst_object_unref(transceiver);
    }
    gst_element_sync_state_with_parent(branch);
    return true;
}

void SendBranch::addProbe(GstElement* branch, const char* elementName, const char* padName, GstPadProbeCallback callback)
{
    gst::ObjectPtr<GstElement> element{gst_bin_get_by_name(gst::bin(branch), elementName)};
    GstPad* pad = element ? gst_element_get_static_pad(element.get(), padName) : nullptr;
    if (!pad) {
        RTC_LOG(logging::kWarning, "the sent video has no %s pad on an element named %s", padName, elementName);
        return;
    }
    const gulong id = gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, callback, Data::make(m_guard), Data::destroy);
    std::lock_guard lock(m_mutex);
    m_probes.push_back({pad, id});
}

bool SendBranch::attach(GstElement* pipeline, GstElement* webrtc, std::string& error)
{
    GstElement* video = buildBranch(m_media.videoLaunch, "rtph264pay", m_payloadTypes.video, error);
    if (!video)
        return false;
    GstElement* audio = buildBranch(m_media.audioLaunch, "rtpopuspay", m_payloadTypes.audio, error);
    if (!audio) {
        gst_object_unref(video);
        return false;
    }
    if (m_media.seiText || m_media.sendVideo)
        addProbe(video, kPayloaderName, "sink", &SendBranch::onVideoAccessUnit);
    if (m_media.drawVideo)
        addProbe(video, SendMedia::kCanvasElement, "src", &SendBranch::onRawFrame);
    if (!link(pipeline, webrtc, video, "sink_0", true, error)) {
        gst_object_unref(audio);
        return false;
    }
    if (!link(pipeline, webrtc, audio, "sink_1", false, error))
        return false;
    if (m_wire)
        m_wire->attach(webrtc);
    return true;
}

GstPadProbeReturn SendBranch::onVideoAccessUnit(GstPad* pad, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (!self || !buffer)
        return GST_PAD_PROBE_OK;
    if (!self->admit(pad, buffer))
        return GST_PAD_PROBE_DROP;
    if (!self->m_media.seiText)
        return GST_PAD_PROBE_OK;
    if (GstBuffer* replaced = self->withSei(buffer)) {
        info->data = replaced;
        gst_buffer_unref(buffer);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn SendBranch::onRawFrame(GstPad* pad, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (!self || !buffer)
        return GST_PAD_PROBE_OK;
    // The source may still hold the frame: draw on our own copy then.
    buffer = gst_buffer_make_writable(buffer);
    info->data = buffer;
    self->draw(pad, buffer);
    return GST_PAD_PROBE_OK;
}

// A unit after a gap would only decode as garbage until the next keyframe,
// so delta units wait for one, which the encoder is asked for right away.
bool SendBranch::admit(GstPad* pad, GstBuffer* accessUnit)
{
    if (!m_media.sendVideo)
        return true;
    if (!m_media.sendVideo()) {
        m_awaitingKeyframe = true;
        return false;
    }
    if (!m_awaitingKeyframe)
        return true;
    if (gst_buffer_has_flags(accessUnit, GST_BUFFER_FLAG_DELTA_UNIT)) {
        gst_pad_push_event(pad, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
        return false;
    }
    m_awaitingKeyframe = false;
    return true;
}

void SendBranch::draw(GstPad* pad, GstBuffer* frame)
{
    gst::CapsPtr caps{gst_pad_get_current_caps(pad)};
    GstVideoInfo info;
    if (!caps || !gst_video_info_from_caps(&info, caps.get()) || GST_VIDEO_INFO_FORMAT(&info) != GST_VIDEO_FORMAT_I420)
        return;
    GstVideoFrame mapped;
    if (!gst_video_frame_map(&mapped, &info, frame, GST_MAP_WRITE))
        return;
    VideoCanvas canvas;
    canvas.width = GST_VIDEO_FRAME_WIDTH(&mapped);
    canvas.height = GST_VIDEO_FRAME_HEIGHT(&mapped);
    for (unsigned plane = 0; plane < 3; ++plane) {
        canvas.planes[plane] = static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped, plane));
        canvas.strides[plane] = GST_VIDEO_FRAME_PLANE_STRIDE(&mapped, plane);
    }
    m_media.drawVideo(canvas);
    gst_video_frame_unmap(&mapped);
}

// gst_h264_create_sei_memory cannot write user-data-unregistered messages in
// GStreamer 1.22, so the unit is built here and only inserted by the parser.
GstBuffer* SendBranch::withSei(GstBuffer* accessUnit)
{
    const std::string text = m_media.seiText();
    if (text.empty())
        return nullptr;
    const std::vector<std::uint8_t> nal = SeiMessage::userDataUnregistered(SeiMessage::engineUuid(), text);
    gpointer bytes = g_memdup2(nal.data(), nal.size());
    GstMemory* memory = gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, bytes, nal.size(), 0, nal.size(), bytes, g_free);
    GstBuffer* result = gst_h264_parser_insert_sei(m_parser, accessUnit, memory);
    gst_memory_unref(memory);
    if (!result)
        RTC_LOG(logging::kWarning, "cannot insert an SEI message into an access unit");
    return result;
}

} // namespace vrq::rtc
