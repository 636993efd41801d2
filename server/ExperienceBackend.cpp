#include "ExperienceBackend.h"

#include "SessionBackend.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace vrqserver {

using nlohmann::json;

namespace {

std::string coded(int code)
{
    return json{{"Code", code}}.dump();
}

// The body's experience code: a non-empty string, or an integer as its digits.
std::optional<std::string> codeOf(const json& body)
{
    if (!body.is_object() || !body.contains("experience_code"))
        return std::nullopt;
    const json& code = body["experience_code"];
    if (code.is_number_integer())
        return code.dump();
    if (code.is_string() && !code.get_ref<const std::string&>().empty())
        return code.get<std::string>();
    return std::nullopt;
}

} // namespace

ExperienceBackend::ExperienceBackend(SessionBackend& sessions)
    : m_sessions(sessions)
{
}

void ExperienceBackend::install(httplib::Server& server)
{
    server.Post("/ExperienceOffer", [this](const httplib::Request& request, httplib::Response& response) {
        response.set_content(registerOffer(request.body), "application/json");
    });
    server.Post("/CreateExperienceSession", [this](const httplib::Request& request, httplib::Response& response) {
        response.set_content(createSession(request.body), "application/json");
    });
}

std::string ExperienceBackend::registerOffer(const std::string& body)
{
    const json parsed = json::parse(body, nullptr, false);
    const auto code = codeOf(parsed);
    const auto session = parsed.is_object() ? parsed.find("client_session") : parsed.end();
    if (!code || session == parsed.end() || !session->is_string() || !decodeClientSession(session->get<std::string>()))
        return coded(400);
    std::lock_guard lock(m_mutex);
    std::erase_if(m_offers, [&](const auto& offer) { return offer.first == *code; });
    if (m_offers.size() >= kMaxOffers)
        m_offers.pop_front();
    m_offers.emplace_back(*code, session->get<std::string>());
    return coded(0);
}

std::string ExperienceBackend::createSession(const std::string& body)
{
    const auto code = codeOf(json::parse(body, nullptr, false));
    if (!code)
        return coded(400);
    const auto clientSession = takeOffer(*code);
    if (!clientSession)
        return coded(404);
    const auto client = decodeClientSession(*clientSession);
    if (!client) // checked when it was registered
        return coded(400);
    if (!m_sessions.admitAnswer())
        return coded(403);
    int status = 0;
    const auto remote = m_sessions.answerOffer(client->sdp, {}, &status);
    if (!remote)
        return coded(503);
    return json{{"Code", 0}, {"ServerSession", encodeRemoteSession(*remote)}}.dump();
}

std::optional<std::string> ExperienceBackend::takeOffer(const std::string& code)
{
    std::lock_guard lock(m_mutex);
    auto found = std::find_if(m_offers.begin(), m_offers.end(), [&](const auto& offer) { return offer.first == code; });
    if (found == m_offers.end())
        return std::nullopt;
    std::string session = std::move(found->second);
    m_offers.erase(found);
    return session;
}

std::size_t ExperienceBackend::pendingOffers() const
{
    std::lock_guard lock(m_mutex);
    return m_offers.size();
}

} // namespace vrqserver
