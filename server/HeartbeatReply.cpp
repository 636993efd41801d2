#include "HeartbeatReply.h"

namespace vrqserver {

std::optional<nlohmann::json> heartbeatReply(const nlohmann::json& heartbeat, const std::string& token)
{
    if (!heartbeat.is_object())
        return std::nullopt;
    const auto timestamp = heartbeat.find("timestamp");
    if (timestamp == heartbeat.end() || !timestamp->is_number_integer())
        return std::nullopt;
    return nlohmann::json{{"timestamp", *timestamp}, {"token", token}};
}

} // namespace vrqserver
