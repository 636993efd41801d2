#include "platform/RtcSendBranch_p.h"

#include "platform/LogBackend.h"
#include "platform/RtcEngine_p.h"
#include "platform/RtcGst_p.h"
#include "platform/RtcSeiMessage_p.h"

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
{
}

SendBranch::~SendBranch()
{
    stop();
    std::lock_guard lock(m_mutex);
    if (m_probedPad)
        gst_object_unref(m_probedPad);
    gst_h264_nal_parser_free(m_parser);
}

void SendBranch::stop()
{
    m_guard->reset(nullptr);
    std::lock_guard lock(m_mutex);
    if (m_probedPad && m_probe) {
        gst_pad_remove_probe(m_probedPad, m_probe);
        m_probe = 0;
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

bool SendBranch::link(GstElement* pipeline, GstElement* webrtc, GstElement* branch, const char* sinkName, std::string& error)
{
    gst_bin_add(gst::bin(pipeline), branch);
    gst::ObjectPtr<GstPad> sink{gst_element_request_pad_simple(webrtc, sinkName)};
    gst::ObjectPtr<GstPad> source{gst_element_get_static_pad(branch, "src")};
    if (!sink || !source || gst_pad_link(source.get(), sink.get()) != GST_PAD_LINK_OK) {
        error = std::string("cannot link the sent media to webrtcbin's ") + sinkName;
        return false;
    }
    // The pad's transceiver answers the offer's receive-only section: it only sends.
    GstWebRTCRTPTransceiver* transceiver = nullptr;
    g_object_get(sink.get(), "transceiver", &transceiver, nullptr);
    if (transceiver) {
        g_object_set(transceiver, "direction", GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDONLY, nullptr);
        gst_object_unref(transceiver);
    }
    gst_element_sync_state_with_parent(branch);
    return true;
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
    if (m_media.seiText) {
        gst::ObjectPtr<GstElement> payloader{gst_bin_get_by_name(gst::bin(video), kPayloaderName)};
        GstPad* pad = payloader ? gst_element_get_static_pad(payloader.get(), "sink") : nullptr;
        if (pad) {
            const gulong probe = gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &SendBranch::onVideoAccessUnit, Data::make(m_guard), Data::destroy);
            std::lock_guard lock(m_mutex);
            m_probedPad = pad;
            m_probe = probe;
        }
    }
    if (!link(pipeline, webrtc, video, "sink_0", error)) {
        gst_object_unref(audio);
        return false;
    }
    return link(pipeline, webrtc, audio, "sink_1", error);
}

GstPadProbeReturn SendBranch::onVideoAccessUnit(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    Data::Entry self{data};
    GstBuffer* buffer = gst::probeBuffer(info);
    if (!self || !buffer)
        return GST_PAD_PROBE_OK;
    if (GstBuffer* replaced = self->withSei(buffer)) {
        info->data = replaced;
        gst_buffer_unref(buffer);
    }
    return GST_PAD_PROBE_OK;
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
