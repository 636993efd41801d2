#include "vrq/platform/engine/RtcWireDelayLine_p.h"

#include "vrq/platform/engine/RtcGst_p.h"

#include <gst/rtp/gstrtpbuffer.h>

#include <cstring>

namespace vrq::rtc {
namespace {

using Data = gst::GuardedData<WireDelayLine>;

constexpr const char* kSendPadPrefix = "send_rtp_src_";

// Set while the line's own thread pushes a held packet, so that the probe it
// passes again lets it through.
thread_local bool t_releasing = false;

struct RtpHeader {
    int payloadType = -1;
    bool marker = false;
};

RtpHeader rtpHeader(GstBuffer* buffer)
{
    RtpHeader header;
    GstRTPBuffer rtp{};
    if (!gst_rtp_buffer_map(buffer, GST_MAP_READ, &rtp))
        return header;
    header.payloadType = gst_rtp_buffer_get_payload_type(&rtp);
    header.marker = gst_rtp_buffer_get_marker(&rtp);
    gst_rtp_buffer_unmap(&rtp);
    return header;
}

} // namespace

WireDelayLine::WireDelayLine(Filter filter, int videoPayloadType, int audioPayloadType)
    : m_filter(std::move(filter))
    , m_videoPayloadType(videoPayloadType)
    , m_audioPayloadType(audioPayloadType)
    , m_guard(std::make_shared<Guard>(this))
{
    m_thread = std::thread([this] { run(); });
}

WireDelayLine::~WireDelayLine()
{
    stop();
}

void WireDelayLine::attach(GstElement* webrtc)
{
    gst::ObjectPtr<GstElement> rtpbin{gst_bin_get_by_name(gst::bin(webrtc), "rtpbin")};
    if (!rtpbin)
        return;
    const gulong id = gst::connect(rtpbin.get(), "pad-added", &WireDelayLine::onPadAdded, Data::make(m_guard), Data::destroyClosure);
    {
        std::lock_guard lock(m_mutex);
        m_handlers.emplace_back(static_cast<GstElement*>(gst_object_ref(rtpbin.get())), id);
    }
    GstIterator* pads = gst_element_iterate_src_pads(rtpbin.get());
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(pads, &item) == GST_ITERATOR_OK) {
        watch(static_cast<GstPad*>(g_value_get_object(&item)));
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(pads);
}

void WireDelayLine::watch(GstPad* pad)
{
    gst::CharsPtr name{gst_pad_get_name(pad)};
    if (!name || std::strncmp(name.get(), kSendPadPrefix, std::strlen(kSendPadPrefix)) != 0)
        return;
    std::lock_guard lock(m_mutex);
    if (m_stopping || !m_watched.insert(pad).second)
        return;
    const auto mask = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    const gulong id = gst_pad_add_probe(pad, mask, &WireDelayLine::onPackets, Data::make(m_guard), Data::destroy);
    m_probes.emplace_back(static_cast<GstPad*>(gst_object_ref(pad)), id);
}

void WireDelayLine::onPadAdded(GstElement*, GstPad* pad, gpointer data)
{
    Data::Entry self{data};
    if (self)
        self->watch(pad);
}

GstPadProbeReturn WireDelayLine::onPackets(GstPad* pad, GstPadProbeInfo* info, gpointer data)
{
    if (t_releasing)
        return GST_PAD_PROBE_OK;
    Data::Entry self{data};
    return self ? self->route(pad, info) : GST_PAD_PROBE_OK;
}

GstPadProbeReturn WireDelayLine::route(GstPad* pad, GstPadProbeInfo* info)
{
    if (GstBuffer* buffer = gst::probeBuffer(info))
        return admit(pad, buffer) ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
    GstBufferList* list = gst::probeBufferList(info);
    if (!list)
        return GST_PAD_PROBE_OK;
    // Once a packet is held every later one queues behind it, so the packets
    // that go on now keep their order.
    const guint count = gst_buffer_list_length(list);
    GstBufferList* going = gst_buffer_list_new_sized(count);
    for (guint i = 0; i < count; ++i) {
        GstBuffer* buffer = gst_buffer_list_get(list, i);
        if (admit(pad, buffer))
            gst_buffer_list_add(going, gst_buffer_ref(buffer));
    }
    const guint left = gst_buffer_list_length(going);
    if (left == count || left == 0) {
        gst_buffer_list_unref(going);
        return left == count ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
    }
    gst_buffer_list_unref(list);
    info->data = going;
    return GST_PAD_PROBE_OK;
}

bool WireDelayLine::admit(GstPad* pad, GstBuffer* buffer)
{
    const RtpHeader header = rtpHeader(buffer);
    // The connection sends video and audio alone: any other payload type is
    // the video's retransmission format.
    if (header.payloadType < 0 || header.payloadType == m_audioPayloadType)
        return true;
    WirePacket packet;
    packet.retransmission = header.payloadType != m_videoPayloadType;
    packet.endsFrame = !packet.retransmission && header.marker;
    const std::optional<std::chrono::microseconds> hold = m_filter(packet);
    if (!hold)
        return false;
    std::lock_guard lock(m_mutex);
    if (m_stopping || (hold->count() <= 0 && m_held.empty()))
        return true;
    m_held.push_back({Clock::now() + *hold, static_cast<GstPad*>(gst_object_ref(pad)), gst_buffer_ref(buffer)});
    m_wake.notify_one();
    return false;
}

void WireDelayLine::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (m_held.empty()) {
            m_wake.wait(lock);
            continue;
        }
        const Clock::time_point due = m_held.front().due;
        if (Clock::now() < due) {
            m_wake.wait_until(lock, due);
            continue;
        }
        const Held next = m_held.front();
        m_held.pop_front();
        lock.unlock();
        t_releasing = true;
        gst_pad_push(next.pad, next.buffer); // takes the buffer
        t_releasing = false;
        gst_object_unref(next.pad);
        lock.lock();
    }
}

void WireDelayLine::stop()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    // The line's thread only pushes into the transport, which never calls back
    // into the engine, so no stop() runs on it.
    if (m_thread.joinable())
        m_thread.join();
    m_guard->reset(nullptr);
    std::deque<Held> held;
    std::vector<std::pair<GstPad*, gulong>> probes;
    std::vector<std::pair<GstElement*, gulong>> handlers;
    {
        std::lock_guard lock(m_mutex);
        held.swap(m_held);
        probes.swap(m_probes);
        handlers.swap(m_handlers);
    }
    for (const auto& [pad, id] : probes) {
        gst_pad_remove_probe(pad, id);
        gst_object_unref(pad);
    }
    for (const auto& [element, id] : handlers) {
        g_signal_handler_disconnect(element, id);
        gst_object_unref(element);
    }
    for (const Held& packet : held) {
        gst_buffer_unref(packet.buffer);
        gst_object_unref(packet.pad);
    }
}

} // namespace vrq::rtc
