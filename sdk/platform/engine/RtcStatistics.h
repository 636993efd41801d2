#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vrq {

// One legacy-style statistics report: a type ("ssrc" for a media stream) and
// its values, all as text (for example "mediaType" = "video",
// "packetsReceived" = "1234").
struct LegacyStatsReport {
    std::string reportId;
    std::string type;
    std::map<std::string, std::string> values;
};

// One standard statistic ("candidate-pair", "track", "inbound-rtp", ...);
// kind is "audio" or "video" where the statistic has one. Values are a JSON
// object of numbers and strings.
struct StatsEntry {
    std::string id;
    std::string type;
    std::optional<std::string> kind;
    nlohmann::json values;
};

// Standard statistics by id.
using StatsReport = std::map<std::string, StatsEntry>;

} // namespace vrq
