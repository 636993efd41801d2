#include "ReconnectBackend.h"

#include "GameServer.h"
#include "SessionBackend.h"

#include "vrq/platform/services/Crypto.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace vrqserver {

using nlohmann::json;

namespace {

std::pair<int, std::string> refused(int status, const std::string& why)
{
    return {status, json{{"code", status}, {"msg", why}}.dump()};
}

} // namespace

ReconnectBackend::ReconnectBackend(GameServer& gameServer, SessionBackend& sessions)
    : m_gameServer(gameServer)
    , m_sessions(sessions)
{
}

std::string ReconnectBackend::signatureFor(const std::string& token, const std::string& ts)
{
    const auto digest = vrq::md5(token + ts + token);
    return vrq::toHex(digest.data(), digest.size());
}

void ReconnectBackend::install(httplib::Server& server)
{
    server.Post(kPath, [this](const httplib::Request& request, httplib::Response& response) {
        ReconnectRecord record;
        record.token = request.get_param_value("token");
        record.streamId = request.get_param_value("stream_id");
        record.ts = request.get_param_value("ts");
        record.uid = request.get_param_value("uid");
        record.sig = request.get_param_value("sig");
        const auto [status, body] = handle(record, request.body);
        record.status = status;
        keep(std::move(record));
        response.status = status;
        response.set_content(body, "application/json");
    });
}

std::pair<int, std::string> ReconnectBackend::handle(ReconnectRecord& record, const std::string& body)
{
    record.signatureValid = !record.token.empty() && !record.ts.empty() && record.sig == signatureFor(record.token, record.ts);
    if (!record.signatureValid)
        return refused(403, "bad signature");
    if (!m_gameServer.issuedToken(record.token))
        return refused(403, "unknown token");
    const json offer = json::parse(body, nullptr, false);
    if (!offer.is_object() || offer.value("type", json()) != "offer" || !offer.contains("sdp") || !offer["sdp"].is_string() ||
        offer["sdp"].get_ref<const std::string&>().empty())
        return {400, json{{"code", 400}}.dump()};
    if (!m_sessions.admitAnswer())
        return {200, SessionBackend::refusal().dump()};
    closeSessionsOf(record.token);
    int status = 0;
    const auto remote = m_sessions.answerOffer(offer["sdp"].get<std::string>(), record.token, &status);
    if (!remote)
        return refused(status, "no answer");
    ++m_served;
    return {200, remote->dump(-1, ' ', false, json::error_handler_t::replace)};
}

void ReconnectBackend::closeSessionsOf(const std::string& token)
{
    for (const auto& session : m_gameServer.sessions())
        if (session->token() == token)
            session->close();
}

void ReconnectBackend::keep(ReconnectRecord record)
{
    std::lock_guard lock(m_mutex);
    if (m_records.size() >= kMaxRecords)
        m_records.erase(m_records.begin());
    m_records.push_back(std::move(record));
}

std::vector<ReconnectRecord> ReconnectBackend::requests() const
{
    std::lock_guard lock(m_mutex);
    return m_records;
}

} // namespace vrqserver
