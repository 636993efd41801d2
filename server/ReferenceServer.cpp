#include "ReferenceServer.h"

#include "CursorImage.h"
#include "ExperienceBackend.h"
#include "GameBehaviour.h"
#include "HttpEndpoint.h"
#include "SessionBackend.h"

#include <httplib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vrqserver {

ReferenceServer::ReferenceServer(Options options)
    : m_options(std::move(options))
{
}

std::unique_ptr<ReferenceServer> ReferenceServer::start(Options options)
{
    options.game.host = options.host;
    options.fields.serverIp = options.host;
    options.fields.metricKey = options.metricKey;
    std::unique_ptr<ReferenceServer> server(new ReferenceServer(std::move(options)));
    const Options& settled = server->m_options;
    server->m_gameServer = GameServer::start(settled.game);
    if (!server->m_gameServer) {
        std::fprintf(stderr, "vrqserver: the media engine cannot start\n");
        return nullptr;
    }
    server->m_faults = std::make_shared<GameFaults>(server->m_gameServer);
    if (auto arrow = CursorImage::arrow())
        server->m_cursor = std::make_shared<const CursorImage>(std::move(*arrow));
    else
        std::fprintf(stderr, "vrqserver: cannot encode the cursor image; no cursor is pushed\n");
    server->m_ingest = std::make_unique<MetricsIngest>(settled.metricKey);
    server->m_sessions = std::make_unique<SessionBackend>(*server->m_gameServer, settled.fields, settled.answerTimeout, server->m_faults);
    server->m_experience = std::make_unique<ExperienceBackend>(*server->m_sessions);
    server->m_reconnect = std::make_unique<ReconnectBackend>(*server->m_gameServer, *server->m_sessions);
    if (!server->bind())
        return nullptr;
    // Cleared by stop(), after which no session is set up any more.
    server->m_gameServer->setSessionSetup([raw = server.get()](const std::shared_ptr<GameSession>& session) {
        raw->setUpSession(session);
    });
    server->m_backendEndpoint->start();
    server->m_reconnectEndpoint->start();
    return server;
}

bool ReferenceServer::bind()
{
    const std::string& host = m_options.host;
    m_backendEndpoint = std::make_unique<HttpEndpoint>(host, m_options.backendPort);
    if (!m_backendEndpoint->ok()) {
        std::fprintf(stderr, "vrqserver: cannot bind %s:%d: %s\n", host.c_str(), m_options.backendPort, std::strerror(errno));
        return false;
    }
    m_reconnectEndpoint = std::make_unique<HttpEndpoint>(host, m_options.reconnectPort);
    if (!m_reconnectEndpoint->ok()) {
        std::fprintf(stderr, "vrqserver: cannot bind %s:%d for reconnects: %s\n", host.c_str(), m_options.reconnectPort,
                     std::strerror(errno));
        return false;
    }
    m_ingest->install(m_backendEndpoint->server());
    m_sessions->install(m_backendEndpoint->server());
    m_experience->install(m_backendEndpoint->server());
    m_faults->install(m_backendEndpoint->server());
    installInputRoutes(m_backendEndpoint->server());
    m_reconnect->install(m_reconnectEndpoint->server());
    return true;
}

void ReferenceServer::installInputRoutes(httplib::Server& server)
{
    installSessionRead(server, "/control/pointer",
                       [](const GameSession& session) { return PointerState::describe(session.pointerState()); });
    installSessionRead(server, "/control/gamepad",
                       [](const GameSession& session) { return GamepadState::describe(session.gamepadState()); });
}

void ReferenceServer::installSessionRead(httplib::Server& server, const std::string& path,
                                         std::function<nlohmann::json(const GameSession&)> read)
{
    server.Get(path, [this, read = std::move(read)](const httplib::Request&, httplib::Response& response) {
        const auto session = m_gameServer->latestSession();
        if (!session) {
            response.status = 404;
            response.set_content(nlohmann::json{{"code", 404}}.dump(), "application/json");
            return;
        }
        response.set_content(read(*session).dump(), "application/json");
    });
}

ReferenceServer::~ReferenceServer()
{
    stop();
}

void ReferenceServer::setUpSession(const std::shared_ptr<GameSession>& session)
{
    m_faults->applyTo(*session);
    GameBehaviour::Settings settings;
    settings.host = m_options.host;
    settings.metricKey = m_options.metricKey;
    settings.userId = m_options.fields.userId;
    settings.gameId = m_options.fields.gameId;
    auto behaviour = GameBehaviour::install(session, std::move(settings), m_cursor, m_faults);
    std::lock_guard lock(m_mutex);
    std::erase_if(m_behaviours, [](const auto& entry) { return entry.second.expired(); });
    m_behaviours[session->id()] = behaviour;
}

std::shared_ptr<GameBehaviour> ReferenceServer::behaviourOf(const GameSession& session) const
{
    std::lock_guard lock(m_mutex);
    auto found = m_behaviours.find(session.id());
    return found == m_behaviours.end() ? nullptr : found->second.lock();
}

void ReferenceServer::setInputObserver(InputObserver observer)
{
    m_gameServer->setInputObserver(std::move(observer));
}

std::string ReferenceServer::origin() const
{
    return m_backendEndpoint->origin();
}

int ReferenceServer::reconnectPort() const
{
    return m_reconnectEndpoint->port();
}

std::size_t ReferenceServer::sessionsServed() const
{
    return m_sessions->sessionsServed();
}

std::size_t ReferenceServer::reconnectsServed() const
{
    return m_reconnect->reconnectsServed();
}

std::vector<ReconnectRecord> ReferenceServer::reconnectRequests() const
{
    return m_reconnect->requests();
}

// The game server stops first, so that requests waiting for an answer end
// at once and the endpoints' threads can be joined without delay.
void ReferenceServer::stop()
{
    if (m_stopped.exchange(true) || !m_gameServer)
        return;
    m_faults->shutdown();
    m_gameServer->stop();
    if (m_backendEndpoint)
        m_backendEndpoint->stop();
    if (m_reconnectEndpoint)
        m_reconnectEndpoint->stop();
    m_gameServer->setSessionSetup(nullptr);
}

} // namespace vrqserver
