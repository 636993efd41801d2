#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace vrqserver {

// The game server's answer to a client heartbeat on "hb": {"timestamp": T, "token": TOKEN},
// where T is the heartbeat's own "timestamp", the very same JSON integer, so that
// the client's "now - T" is its round trip. A heartbeat that is not an object
// or has no integer "timestamp" gets no answer.
std::optional<nlohmann::json> heartbeatReply(const nlohmann::json& heartbeat, const std::string& token);

} // namespace vrqserver
