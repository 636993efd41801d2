#pragma once

// Faults a test injects into a running connection's pipeline, to see the
// engine report them as a real failure would. Not installed for hosts.

#include "vrq/platform/engine/RtcPeerConnection.h"

#include <string>

namespace vrq::rtc {

// Posts an error from the first element of the connection's pipeline made by
// the factory named (e.g. "dtlsdec", or videoDecoderName()), exactly as that
// element reports a failure of its own. False when there is no such element.
bool postElementError(PeerConnection& connection, const std::string& factoryName);

} // namespace vrq::rtc
