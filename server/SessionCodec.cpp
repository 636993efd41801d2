#include "SessionCodec.h"

#include "vrq/platform/services/Crypto.h"

namespace vrqserver {

std::optional<ClientSession> decodeClientSession(std::string_view text)
{
    const auto bytes = vrq::base64Decode(text);
    if (!bytes)
        return std::nullopt;
    nlohmann::json object = nlohmann::json::parse(*bytes, nullptr, false);
    if (!object.is_object())
        return std::nullopt;
    const auto type = object.find("type");
    const auto sdp = object.find("sdp");
    if (type == object.end() || *type != "offer" || sdp == object.end() || !sdp->is_string() ||
        sdp->get_ref<const std::string&>().empty())
        return std::nullopt;
    ClientSession session;
    session.sdp = sdp->get<std::string>();
    session.object = std::move(object);
    return session;
}

nlohmann::json makeRemoteSession(const std::string& answerSdp, const RemoteSessionFields& fields,
                                 const std::string& requestId)
{
    return {
        {"code", 0},
        {"sdp", answerSdp},
        {"metric_key", fields.metricKey},
        {"screen_config", fields.screenConfig},
        {"server_ip", fields.serverIp},
        {"region", fields.region},
        {"request_id", requestId},
        {"user_id", fields.userId},
        {"game_id", fields.gameId},
        {"app_id", fields.appId},
    };
}

std::string encodeRemoteSession(const nlohmann::json& session)
{
    return vrq::base64Encode(session.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace vrqserver
