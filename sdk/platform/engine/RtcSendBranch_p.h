#pragma once

#include "vrq/platform/engine/RtcAnswerer_p.h"
#include "vrq/platform/engine/RtcCallbackGuard_p.h"
#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcWireDelayLine_p.h"

#include <gst/codecparsers/gsth264parser.h>
#include <gst/gst.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vrq::rtc {

// The media an answering peer sends: the configured video and audio launch
// descriptions, payloaded with the payload types of the remote offer and
// linked to webrtcbin's sink_0 (video) and sink_1 (audio). Every video access
// unit may carry a user-data-unregistered SEI message with the text that
// SendMedia::seiText gives for it, and passes SendMedia::sendVideo's gate;
// raw frames at the canvas element go through SendMedia::drawVideo, and
// video RTP packets on their way out through SendMedia::videoWire. The video
// transceiver retransmits what the receiver reports lost.
class SendBranch {
public:
    struct PayloadTypes {
        int video = 102;
        int audio = 111;
    };

    SendBranch(SendMedia media, PayloadTypes payloadTypes);
    ~SendBranch();
    SendBranch(const SendBranch&) = delete;
    SendBranch& operator=(const SendBranch&) = delete;

    // Builds both branches in the pipeline and links them to webrtcbin.
    bool attach(GstElement* pipeline, GstElement* webrtc, std::string& error);
    // Ends the probes: once it returns no SendMedia callback is called again.
    void stop();
    // Whether the calling thread is inside a SendMedia callback.
    bool isCallingBack() const { return m_guard->isBorrowedHere() || (m_wire && m_wire->isCallingBack()); }

private:
    using Guard = CallbackGuard<SendBranch>;
    struct Probe {
        GstPad* pad; // owned reference
        gulong id;
    };

    GstElement* buildBranch(const std::string& launch, const char* payloader, int payloadType, std::string& error);
    bool link(GstElement* pipeline, GstElement* webrtc, GstElement* branch, const char* sinkName, bool video, std::string& error);
    void addProbe(GstElement* branch, const char* elementName, const char* padName, GstPadProbeCallback callback);
    static GstPadProbeReturn onVideoAccessUnit(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    static GstPadProbeReturn onRawFrame(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    bool admit(GstPad* pad, GstBuffer* accessUnit);
    GstBuffer* withSei(GstBuffer* accessUnit);
    void draw(GstPad* pad, GstBuffer* frame);

    const SendMedia m_media;
    const PayloadTypes m_payloadTypes;
    const std::shared_ptr<Guard> m_guard;
    GstH264NalParser* const m_parser; // used on the video streaming thread only
    bool m_awaitingKeyframe = false;  // used on the video streaming thread only
    const std::unique_ptr<WireDelayLine> m_wire; // null when SendMedia::videoWire is unset
    std::mutex m_mutex;
    std::vector<Probe> m_probes; // guarded by m_mutex
};

} // namespace vrq::rtc
