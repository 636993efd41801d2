#pragma once

#include "vrq/platform/engine/RtcGst_p.h"
#include "vrq/platform/engine/RtcTypes.h"

#include <gst/webrtc/webrtc.h>

namespace vrq::rtc {

// A receive-only transceiver of video asks for lost packets again: the offer
// then carries NACK feedback and a retransmission format ("rtx") for each
// video payload type, without which the sender keeps nothing to retransmit.
// The stream's jitter buffer sends the NACKs (see ReceiveBranch). Audio is
// not retransmitted: a late audio packet is no better than a lost one.
inline void requestRetransmissions(GstWebRTCRTPTransceiver* transceiver, MediaType media)
{
    g_object_set(transceiver, "do-nack", media == MediaType::Video ? TRUE : FALSE, nullptr);
}

} // namespace vrq::rtc
