#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The back end's remote session (or a reconnect's answer), read once into the
// values the kit uses of it. Each member has the value the typed getters give
// an absent or mistyped key: numbers are not read from strings.
struct VRQRemoteSession {
    std::int32_t code = -1;       // 0 is success
    std::string metricKey;        // signing key of the metrics service
    std::string sdp;              // the answer
    nlohmann::json screenConfig = nlohmann::json::object(); // initial orientation message
    // Who and where, for the monitor's records and the uploaded logs.
    std::string serverIp;
    std::string region;
    std::string requestId;
    std::string userId;
    std::string gameId;
    nlohmann::json appId = 0;     // a number, as the back end sent it
    // The whole object as it came, for the start's log line.
    nlohmann::json dictionary = nlohmann::json::object();

    static VRQRemoteSession fromDictionary(const nlohmann::json& dictionary);
    // A reconnect's answer: the JSON text of the object. Text that is no JSON
    // object reads as an empty one (no "sdp").
    static VRQRemoteSession fromJsonText(std::string_view text);
    // The remote-session text of the back end's answer to an experience code,
    // {"Code": 0, "ServerSession": "..."}: nothing when "Code" is not the
    // number 0 (or the answer no JSON object), an empty text when
    // "ServerSession" is missing or not a string.
    static std::optional<std::string> experienceSessionText(std::string_view answer);
};
