#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vrqserver {

// What a client's session text carries: base64 of a JSON object with at least
// "type" ("offer") and "sdp". The whole object is kept for its other members.
struct ClientSession {
    std::string sdp;
    nlohmann::json object;
};

// What the back end tells a client besides the answer.
struct RemoteSessionFields {
    std::string metricKey;
    nlohmann::json screenConfig = {{"orientation", "landscape"}};
    std::string serverIp = "127.0.0.1";
    std::string region = "loopback";
    std::string userId = "vrq-player";
    std::string gameId = "vrq-reference-game";
    std::int64_t appId = 1001; // a number on the wire, as the kit reads it
};

// Nothing when the text is not base64 of a JSON object whose "type" is "offer"
// and whose "sdp" is a non-empty string.
std::optional<ClientSession> decodeClientSession(std::string_view text);

// The remote session object: "code" 0, the answer's "sdp" and the fields.
nlohmann::json makeRemoteSession(const std::string& answerSdp, const RemoteSessionFields& fields,
                                 const std::string& requestId);

// Base64 of the object's compact JSON text, as the client expects it.
std::string encodeRemoteSession(const nlohmann::json& session);

} // namespace vrqserver
