#include "GameFaults.h"

#include "GameServer.h"

#include <httplib.h>

#include <algorithm>
#include <cstdlib>

namespace vrqserver {

namespace {

void reply(httplib::Response& response, int code)
{
    response.status = code == 0 ? 200 : code;
    response.set_content(nlohmann::json{{"code", code}}.dump(), "application/json");
}

// "1" or "0"; nothing for anything else.
std::optional<bool> switchParam(const httplib::Request& request)
{
    const std::string on = request.get_param_value("on");
    if (on == "1" || on == "0")
        return on == "1";
    return std::nullopt;
}

std::optional<AnswerMode> modeNamed(const std::string& name)
{
    if (name == "normal")
        return AnswerMode::Normal;
    if (name == "refuse")
        return AnswerMode::Refuse;
    if (name == "delay")
        return AnswerMode::Delay;
    return std::nullopt;
}

// A non-negative whole number; the fallback when the parameter is missing.
std::optional<long long> integerParam(const httplib::Request& request, const char* name, long long fallback)
{
    if (!request.has_param(name))
        return fallback;
    const std::string text = request.get_param_value(name);
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0)
        return std::nullopt;
    return value;
}

std::optional<std::chrono::milliseconds> millisecondsParam(const httplib::Request& request)
{
    const auto value = integerParam(request, "ms", 0);
    return value ? std::optional(std::chrono::milliseconds(*value)) : std::nullopt;
}

std::optional<LinkConditions> linkParams(const httplib::Request& request)
{
    double loss = 0.0;
    if (request.has_param("loss")) {
        const std::string text = request.get_param_value("loss");
        char* end = nullptr;
        loss = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0')
            return std::nullopt;
    }
    const auto delay = integerParam(request, "delay_ms", 0);
    const auto jitter = integerParam(request, "jitter_ms", 0);
    const auto seed = integerParam(request, "seed", 1);
    if (!delay || !jitter || !seed || *seed > 0xffffffffLL)
        return std::nullopt;
    return LinkConditions::checked(loss, *delay, *jitter, static_cast<std::uint32_t>(*seed));
}

} // namespace

GameFaults::GameFaults(std::weak_ptr<GameServer> server)
    : m_server(std::move(server))
{
}

std::shared_ptr<GameSession> GameFaults::latestSession() const
{
    auto server = m_server.lock();
    return server ? server->latestSession() : nullptr;
}

bool GameFaults::dropPeer()
{
    auto session = latestSession();
    if (!session || session->isClosed())
        return false;
    session->close();
    return true;
}

void GameFaults::setVideoFrozen(bool frozen)
{
    // Serialised, so that the flag and the sessions end up agreeing.
    std::lock_guard lock(m_mutex);
    m_videoFrozen.store(frozen);
    if (frozen) {
        if (auto session = latestSession())
            session->setVideoFrozen(true);
        return;
    }
    if (auto server = m_server.lock())
        for (const auto& session : server->sessions())
            session->setVideoFrozen(false);
}

void GameFaults::setLinkConditions(const LinkConditions& conditions)
{
    std::lock_guard lock(m_mutex);
    m_link = conditions;
    if (!conditions.clean()) {
        if (auto session = latestSession())
            session->setLinkConditions(conditions);
        return;
    }
    if (auto server = m_server.lock())
        for (const auto& session : server->sessions())
            session->setLinkConditions(conditions);
}

LinkConditions GameFaults::linkConditions() const
{
    std::lock_guard lock(m_mutex);
    return m_link;
}

void GameFaults::applyTo(GameSession& session) const
{
    if (m_videoFrozen.load())
        session.setVideoFrozen(true);
    const LinkConditions link = linkConditions();
    if (!link.clean())
        session.setLinkConditions(link);
}

bool GameFaults::sendDisconnectCode(nlohmann::json code)
{
    auto session = latestSession();
    return session && session->send("hb", nlohmann::json{{"code", std::move(code)}}.dump());
}

bool GameFaults::sendServerEvent(const std::string& type, nlohmann::json data)
{
    auto session = latestSession();
    return session && session->send("sv", nlohmann::json{{"type", type}, {"data", std::move(data)}}.dump());
}

void GameFaults::setAnswerMode(AnswerMode mode, std::chrono::milliseconds delay)
{
    std::lock_guard lock(m_mutex);
    m_answerMode = mode;
    m_answerDelay = std::clamp(delay, std::chrono::milliseconds(0), kMaxAnswerDelay);
}

AnswerMode GameFaults::answerMode() const
{
    std::lock_guard lock(m_mutex);
    return m_answerMode;
}

bool GameFaults::admitAnswer() const
{
    std::unique_lock lock(m_mutex);
    if (m_answerMode == AnswerMode::Refuse)
        return false;
    if (m_answerMode == AnswerMode::Delay)
        m_shutdownSignal.wait_for(lock, m_answerDelay, [this] { return m_shutdown; });
    return true;
}

void GameFaults::shutdown()
{
    m_flood.stop();
    {
        std::lock_guard lock(m_mutex);
        m_shutdown = true;
    }
    m_shutdownSignal.notify_all();
}

void GameFaults::install(httplib::Server& server)
{
    m_flood.install(server);
    server.Post("/control/drop", [this](const httplib::Request&, httplib::Response& response) {
        reply(response, dropPeer() ? 0 : 404);
    });
    server.Post("/control/freeze", [this](const httplib::Request& request, httplib::Response& response) {
        const auto on = switchParam(request);
        if (on)
            setVideoFrozen(*on);
        reply(response, on ? 0 : 400);
    });
    server.Post("/control/link", [this](const httplib::Request& request, httplib::Response& response) {
        const auto conditions = linkParams(request);
        if (conditions)
            setLinkConditions(*conditions);
        reply(response, conditions ? 0 : 400);
    });
    server.Post("/control/acks", [this](const httplib::Request& request, httplib::Response& response) {
        const auto on = switchParam(request);
        if (on)
            setAcksAnswered(*on);
        reply(response, on ? 0 : 400);
    });
    server.Post("/control/disconnect", [this](const httplib::Request& request, httplib::Response& response) {
        if (!request.has_param("code"))
            return reply(response, 400);
        const std::string text = request.get_param_value("code");
        nlohmann::json code = nlohmann::json::parse(text, nullptr, false);
        if (code.is_discarded())
            code = text;
        reply(response, sendDisconnectCode(std::move(code)) ? 0 : 404);
    });
    server.Post("/control/answers", [this](const httplib::Request& request, httplib::Response& response) {
        const auto mode = modeNamed(request.get_param_value("mode"));
        const auto delay = millisecondsParam(request);
        if (!mode || !delay)
            return reply(response, 400);
        setAnswerMode(*mode, *delay);
        reply(response, 0);
    });
    server.Post("/control/sv", [this](const httplib::Request& request, httplib::Response& response) {
        const nlohmann::json body = nlohmann::json::parse(request.body, nullptr, false);
        if (!body.is_object() || !body.contains("type") || !body["type"].is_string())
            return reply(response, 400);
        reply(response, sendServerEvent(body["type"], body.value("data", nlohmann::json::object())) ? 0 : 404);
    });
}

} // namespace vrqserver
