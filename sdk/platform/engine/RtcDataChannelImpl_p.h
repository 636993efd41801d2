#pragma once

#include "vrq/platform/engine/RtcCallbackGuard_p.h"
#include "vrq/platform/engine/RtcDataChannel.h"
#include "vrq/platform/engine/RtcGst_p.h"

#include <gst/webrtc/webrtc.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vrq {
class PendingLimit;
class SerialQueue;
}

namespace vrq::rtc {

// A data channel over a webrtcbin channel. Its signals arrive on webrtcbin's
// threads; state changes and messages are handed, in order, to the engine's
// queue, where the observer is called.
class DataChannelImpl final : public DataChannel {
public:
    // Takes a reference to the channel.
    // With an observer (a channel made here), a state the channel reached
    // before its signals were connected is announced as a change.
    static std::shared_ptr<DataChannelImpl> wrap(GstWebRTCDataChannel* channel, std::shared_ptr<SerialQueue> queue,
                                                 DataChannelObserver* observer = nullptr);
    ~DataChannelImpl() override;

    std::string label() const override { return m_label; }
    DataChannelState readyState() const override { return m_state.load(); }
    bool sendData(const DataBuffer& buffer) override;
    void close() override;
    void setObserver(DataChannelObserver* observer) override;

    // Ends every event of the channel: once it returns no observer call follows
    // and the channel reads as closed. Called when its connection closes.
    void detach();

private:
    using SelfGuard = CallbackGuard<DataChannelImpl>;
    using ObserverGuard = CallbackGuard<DataChannelObserver>;
    enum class Event { StateChanged, Message };

    DataChannelImpl(GstWebRTCDataChannel* channel, std::string label, std::shared_ptr<SerialQueue> queue);
    void connectSignals();
    void updateState();
    void post(Event event, DataBuffer buffer = {});

    static void onStateSignal(GstWebRTCDataChannel* channel, gpointer data);
    static void onReadyStateNotify(GObject* object, GParamSpec* property, gpointer data);
    static void onMessageString(GstWebRTCDataChannel* channel, const gchar* text, gpointer data);
    static void onMessageData(GstWebRTCDataChannel* channel, GBytes* bytes, gpointer data);

    GstWebRTCDataChannel* const m_channel; // owned reference
    const std::string m_label;
    const std::shared_ptr<SerialQueue> m_queue;
    const std::shared_ptr<SelfGuard> m_self;
    const std::shared_ptr<ObserverGuard> m_observer;
    const std::shared_ptr<PendingLimit> m_inbound; // messages waiting on the queue
    std::atomic<DataChannelState> m_state{DataChannelState::Connecting};
    std::mutex m_mutex;
    std::vector<gulong> m_handlers; // guarded by m_mutex
    bool m_detached = false;        // guarded by m_mutex
};

} // namespace vrq::rtc
