#include "vrq/platform/engine/RtcDataChannelImpl_p.h"

#include "vrq/platform/dispatch/PendingLimit.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/engine/RtcEngine_p.h"
#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/services/LogBackend.h"

namespace vrq::rtc {
namespace {

using Data = gst::GuardedData<DataChannelImpl>;

DataChannelState stateFromGst(GstWebRTCDataChannelState state)
{
    switch (state) {
    case GST_WEBRTC_DATA_CHANNEL_STATE_CONNECTING:
        return DataChannelState::Connecting;
    case GST_WEBRTC_DATA_CHANNEL_STATE_OPEN:
        return DataChannelState::Open;
    case GST_WEBRTC_DATA_CHANNEL_STATE_CLOSING:
        return DataChannelState::Closing;
    case GST_WEBRTC_DATA_CHANNEL_STATE_CLOSED:
        return DataChannelState::Closed;
    }
    return DataChannelState::Connecting;
}

std::string labelOf(GstWebRTCDataChannel* channel)
{
    gchar* label = nullptr;
    g_object_get(channel, "label", &label, nullptr);
    return gst::takeString(label);
}

} // namespace

std::shared_ptr<DataChannelImpl> DataChannelImpl::wrap(GstWebRTCDataChannel* channel, std::shared_ptr<SerialQueue> queue,
                                                       DataChannelObserver* observer)
{
    std::shared_ptr<DataChannelImpl> wrapped(new DataChannelImpl(channel, labelOf(channel), std::move(queue)));
    // Set before any signal can post an event, so that none is delivered to nobody.
    wrapped->m_observer->reset(observer);
    wrapped->connectSignals();
    if (observer && wrapped->m_state.load() != DataChannelState::Connecting)
        wrapped->post(Event::StateChanged);
    return wrapped;
}

DataChannelImpl::DataChannelImpl(GstWebRTCDataChannel* channel, std::string label, std::shared_ptr<SerialQueue> queue)
    : m_channel(static_cast<GstWebRTCDataChannel*>(gst_object_ref(channel)))
    , m_label(std::move(label))
    , m_queue(std::move(queue))
    , m_self(std::make_shared<SelfGuard>(this))
    , m_observer(std::make_shared<ObserverGuard>())
    , m_inbound(PendingLimit::make("data channel \"" + m_label + "\" messages from the peer", PendingLimit::kChannelMessages,
                                   PendingLimit::kChannelBytes))
{
}

DataChannelImpl::~DataChannelImpl()
{
    detach();
    gst_object_unref(m_channel);
}

void DataChannelImpl::connectSignals()
{
    std::lock_guard lock(m_mutex);
    auto connect = [&](const char* signal, auto* handler) {
        m_handlers.push_back(gst::connect(m_channel, signal, handler, Data::make(m_self), Data::destroyClosure));
    };
    connect("notify::ready-state", &DataChannelImpl::onReadyStateNotify);
    connect("on-open", &DataChannelImpl::onStateSignal);
    connect("on-close", &DataChannelImpl::onStateSignal);
    connect("on-message-string", &DataChannelImpl::onMessageString);
    connect("on-message-data", &DataChannelImpl::onMessageData);
    // A channel announced by the remote side may already be open.
    GstWebRTCDataChannelState state = GST_WEBRTC_DATA_CHANNEL_STATE_CONNECTING;
    g_object_get(m_channel, "ready-state", &state, nullptr);
    m_state.store(stateFromGst(state));
}

void DataChannelImpl::detach()
{
    std::vector<gulong> handlers;
    {
        std::lock_guard lock(m_mutex);
        if (m_detached)
            return;
        m_detached = true;
        handlers.swap(m_handlers);
    }
    m_self->reset(nullptr);
    m_observer->reset(nullptr);
    for (gulong handler : handlers)
        g_signal_handler_disconnect(m_channel, handler);
    m_state.store(DataChannelState::Closed);
}

bool DataChannelImpl::sendData(const DataBuffer& buffer)
{
    if (m_state.load() != DataChannelState::Open)
        return false;
    GError* error = nullptr;
    gboolean sent = FALSE;
    if (buffer.isBinary) {
        GBytes* bytes = g_bytes_new(buffer.data.data(), buffer.data.size());
        sent = gst_webrtc_data_channel_send_data_full(m_channel, bytes, &error);
        g_bytes_unref(bytes);
    } else {
        // A text message goes out as a C string: one with a zero byte would be
        // cut short there, so it is refused whole.
        if (buffer.data.find('\0') != std::string::npos) {
            RTC_LOG(logging::kWarning, "send on \"%s\" refused: a text message cannot hold a zero byte", m_label.c_str());
            return false;
        }
        sent = gst_webrtc_data_channel_send_string_full(m_channel, buffer.data.c_str(), &error);
    }
    if (error) {
        RTC_LOG(logging::kWarning, "send on \"%s\" failed: %s", m_label.c_str(), error->message);
        g_error_free(error);
    }
    return sent != FALSE;
}

void DataChannelImpl::close()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_detached)
            return;
    }
    gst_webrtc_data_channel_close(m_channel);
}

void DataChannelImpl::setObserver(DataChannelObserver* observer)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_detached)
            return;
    }
    m_observer->reset(observer);
}

void DataChannelImpl::updateState()
{
    GstWebRTCDataChannelState gstState = GST_WEBRTC_DATA_CHANNEL_STATE_CONNECTING;
    g_object_get(m_channel, "ready-state", &gstState, nullptr);
    const DataChannelState state = stateFromGst(gstState);
    // "on-open" and the property notification both announce the same change; report it once.
    std::lock_guard lock(m_mutex);
    if (m_state.exchange(state) != state)
        post(Event::StateChanged);
}

// Events keep their order through the one queue; the observer is read when
// the event is delivered, so one set inside an earlier event hears later ones.
void DataChannelImpl::post(Event event, DataBuffer buffer)
{
    const std::size_t bytes = buffer.data.size();
    if (event == Event::Message && !m_inbound->tryEnter(bytes))
        return;
    m_queue->async([self = m_self, observer = m_observer, inbound = m_inbound, event, buffer = std::move(buffer), bytes] {
        if (event == Event::Message)
            inbound->leave(bytes);
        auto channel = self->borrow();
        if (!channel)
            return;
        auto target = observer->borrow();
        if (!target)
            return;
        if (event == Event::StateChanged)
            target->dataChannelDidChangeState(*channel.get());
        else
            target->dataChannelDidReceiveMessage(*channel.get(), buffer);
    });
}

void DataChannelImpl::onStateSignal(GstWebRTCDataChannel*, gpointer data)
{
    if (Data::Entry self{data})
        self->updateState();
}

void DataChannelImpl::onReadyStateNotify(GObject*, GParamSpec*, gpointer data)
{
    if (Data::Entry self{data})
        self->updateState();
}

void DataChannelImpl::onMessageString(GstWebRTCDataChannel*, const gchar* text, gpointer data)
{
    if (Data::Entry self{data})
        self->post(Event::Message, DataBuffer{text ? std::string(text) : std::string(), false});
}

void DataChannelImpl::onMessageData(GstWebRTCDataChannel*, GBytes* bytes, gpointer data)
{
    Data::Entry self{data};
    if (!self)
        return;
    gsize size = 0;
    const auto* bytesData = bytes ? static_cast<const char*>(g_bytes_get_data(bytes, &size)) : nullptr;
    self->post(Event::Message, DataBuffer{bytesData ? std::string(bytesData, size) : std::string(), true});
}

} // namespace vrq::rtc
