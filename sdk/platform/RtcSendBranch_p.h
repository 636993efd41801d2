#pragma once

#include "platform/RtcCallbackGuard_p.h"
#include "platform/RtcGst_p.h"
#include "platform/RtcPeerConnection.h"

#include <gst/codecparsers/gsth264parser.h>
#include <gst/gst.h>

#include <memory>
#include <mutex>
#include <string>

namespace vrq::rtc {

// The media an answering peer sends: the configured video and audio launch
// descriptions, payloaded with the payload types of the remote offer and
// linked to webrtcbin's sink_0 (video) and sink_1 (audio). Every video access
// unit may carry a user-data-unregistered SEI message with the text that
// SendMedia::seiText gives for it.
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
    // Ends the SEI probe: once it returns seiText is not called again.
    void stop();
    // Whether the calling thread is inside seiText.
    bool isCallingBack() const { return m_guard->isBorrowedHere(); }

private:
    using Guard = CallbackGuard<SendBranch>;

    GstElement* buildBranch(const std::string& launch, const char* payloader, int payloadType, std::string& error);
    bool link(GstElement* pipeline, GstElement* webrtc, GstElement* branch, const char* sinkName, std::string& error);
    static GstPadProbeReturn onVideoAccessUnit(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    GstBuffer* withSei(GstBuffer* accessUnit);

    const SendMedia m_media;
    const PayloadTypes m_payloadTypes;
    const std::shared_ptr<Guard> m_guard;
    GstH264NalParser* const m_parser; // used on the video streaming thread only
    std::mutex m_mutex;
    GstPad* m_probedPad = nullptr; // owned reference, guarded by m_mutex
    gulong m_probe = 0;            // guarded by m_mutex
};

} // namespace vrq::rtc
