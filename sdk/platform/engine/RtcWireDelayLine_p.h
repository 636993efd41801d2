#pragma once

#include "vrq/platform/engine/RtcAnswerer_p.h"
#include "vrq/platform/engine/RtcCallbackGuard_p.h"

#include <gst/gst.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace vrq::rtc {

// The last stretch of an answering peer's RTP before the network: probes on
// webrtcbin's rtpbin send pads, after its retransmission buffer, show every
// video packet (first sendings and retransmissions, told apart by payload
// type) to a filter that loses it or holds it back. Held packets are pushed
// on from the line's own thread when their time comes, in the order they
// came; audio and the packets the filter passes at once flow untouched.
class WireDelayLine {
public:
    using Filter = std::function<std::optional<std::chrono::microseconds>(const WirePacket& packet)>;

    WireDelayLine(Filter filter, int videoPayloadType, int audioPayloadType);
    ~WireDelayLine();
    WireDelayLine(const WireDelayLine&) = delete;
    WireDelayLine& operator=(const WireDelayLine&) = delete;

    // Watches webrtcbin's RTP send pads, those there now and those to come.
    void attach(GstElement* webrtc);
    // Ends the probes and the line's thread, and drops what it still holds:
    // once it returns the filter is not called again.
    void stop();
    // Whether the calling thread is inside the filter.
    bool isCallingBack() const { return m_guard->isBorrowedHere(); }

private:
    using Guard = CallbackGuard<WireDelayLine>;
    using Clock = std::chrono::steady_clock;
    struct Held {
        Clock::time_point due;
        GstPad* pad;       // owned reference
        GstBuffer* buffer; // owned reference
    };

    static void onPadAdded(GstElement* rtpbin, GstPad* pad, gpointer data);
    static GstPadProbeReturn onPackets(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    void watch(GstPad* pad);
    GstPadProbeReturn route(GstPad* pad, GstPadProbeInfo* info);
    // True when the packet goes on now; otherwise it was held (with a reference of its own) or lost.
    bool admit(GstPad* pad, GstBuffer* buffer);
    void run();

    const Filter m_filter;
    const int m_videoPayloadType;
    const int m_audioPayloadType;
    const std::shared_ptr<Guard> m_guard;

    std::mutex m_mutex; // guards the members below
    std::condition_variable m_wake;
    std::deque<Held> m_held;
    std::set<GstPad*> m_watched; // not owned; compared only
    std::vector<std::pair<GstPad*, gulong>> m_probes;       // owned pad references
    std::vector<std::pair<GstElement*, gulong>> m_handlers; // owned element references
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace vrq::rtc
