#pragma once

#include "vrq/platform/engine/RtcStatistics.h"

#include <gst/gst.h>

#include <vector>

namespace vrq::rtc {

// Reads the reply of webrtcbin's "get-stats" into StatsEntry form: one entry
// per statistic, its type named as W3C names it ("inbound-rtp",
// "candidate-pair", ...) and its fields in camelCase ("packets-received"
// becomes "packetsReceived"; nested structures become nested objects).
class StatsReader {
public:
    static std::vector<StatsEntry> read(const GstStructure* reply);
};

} // namespace vrq::rtc
