#include "vrq/utils/VRQRemoteSession.h"

#include "vrq/utils/VRQJsonHelpers.h"

namespace {

std::string text(const nlohmann::json& dictionary, const char* key)
{
    return vrq_stringForKey(dictionary, key, std::string()).value_or("");
}

} // namespace

VRQRemoteSession VRQRemoteSession::fromDictionary(const nlohmann::json& dictionary)
{
    VRQRemoteSession session;
    if (!dictionary.is_object())
        return session;
    session.code = vrq_intForKey(dictionary, "code", -1);
    session.metricKey = text(dictionary, "metric_key");
    session.sdp = text(dictionary, "sdp");
    session.screenConfig = vrq_dictionaryForKey(dictionary, "screen_config", nlohmann::json::object());
    session.serverIp = text(dictionary, "server_ip");
    session.region = text(dictionary, "region");
    session.requestId = text(dictionary, "request_id");
    session.userId = text(dictionary, "user_id");
    session.gameId = text(dictionary, "game_id");
    session.appId = vrq_numberForKey(dictionary, "app_id", 0);
    session.dictionary = dictionary;
    return session;
}

VRQRemoteSession VRQRemoteSession::fromJsonText(std::string_view text)
{
    return fromDictionary(vrq_dictionaryWithJsonObject(text).value_or(nlohmann::json::object()));
}

std::optional<std::string> VRQRemoteSession::experienceSessionText(std::string_view answer)
{
    const nlohmann::json result = vrq_dictionaryWithJsonObject(answer).value_or(nlohmann::json::object());
    if (vrq_intForKey(result, "Code", -1) != 0)
        return std::nullopt;
    return vrq_stringForKey(result, "ServerSession", std::string()).value_or("");
}
