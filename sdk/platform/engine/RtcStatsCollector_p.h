#pragma once

#include "vrq/platform/engine/RtcReceiveBranch_p.h"
#include "vrq/platform/engine/RtcStatistics.h"

#include <vector>

namespace vrq::rtc {

// Builds the legacy-style and the standard statistics from webrtcbin's
// statistics (already read into StatsEntry form, see StatsReader) and the
// figures the receive branches measured.
class StatsCollector {
public:
    static std::vector<LegacyStatsReport> legacy(const std::vector<StatsEntry>& webrtc, const std::vector<ReceiveBranch::Figures>& streams);
    static StatsReport standard(const std::vector<StatsEntry>& webrtc, const std::vector<ReceiveBranch::Figures>& streams);
};

} // namespace vrq::rtc
