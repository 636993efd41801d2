#include "GameServer.h"

#include "platform/Crypto.h"

#include <algorithm>
#include <random>

namespace vrqserver {

namespace {

// Closed sessions kept for inspection before they are dropped.
constexpr std::size_t kClosedSessionsKept = 8;

std::string randomToken()
{
    std::random_device device;
    std::string bytes(16, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(device() & 0xff);
    return vrq::toHex(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

GameServer::GameServer(Options options)
    : m_options(std::move(options))
{
}

std::unique_ptr<GameServer> GameServer::start(Options options)
{
    if (!vrq::rtc::initializeEngine())
        return nullptr;
    if (options.iceAddresses.empty())
        options.iceAddresses = {options.host};
    return std::unique_ptr<GameServer>(new GameServer(std::move(options)));
}

GameServer::~GameServer()
{
    stop();
}

GameSession::Settings GameServer::nextSessionSettings()
{
    GameSession::Settings settings;
    settings.id = std::to_string(m_nextSessionId++);
    settings.token = m_options.token.empty() ? randomToken() : m_options.token;
    settings.iceAddresses = m_options.iceAddresses;
    settings.video = m_options.video;
    settings.heartbeatTimeout = m_options.heartbeatTimeout;
    return settings;
}

std::shared_ptr<GameSession> GameServer::acceptOffer(const std::string& offerSdp,
                                                     GameSession::AnswerCompletion completion)
{
    std::shared_ptr<GameSession> session = GameSession::create(nextSessionSettings());
    bool taken = false;
    if (session) {
        std::lock_guard lock(m_mutex);
        if (!m_stopped) {
            m_sessions.push_back(session);
            taken = true;
        }
    }
    if (!taken) {
        if (session)
            session->close();
        completion(std::nullopt, VRQError{"vrqserver", 4, "the game server cannot take a session"});
        return nullptr;
    }
    dropClosedSessions();
    session->answer(offerSdp, std::move(completion));
    return session;
}

void GameServer::dropClosedSessions()
{
    // Declared before the lock, so that the sessions are destroyed after it is released.
    std::vector<std::shared_ptr<GameSession>> dropped;
    std::lock_guard lock(m_mutex);
    auto closed = static_cast<std::size_t>(
        std::count_if(m_sessions.begin(), m_sessions.end(), [](const auto& session) { return session->isClosed(); }));
    for (auto it = m_sessions.begin(); it != m_sessions.end() && closed > kClosedSessionsKept;) {
        if ((*it)->isClosed()) {
            dropped.push_back(std::move(*it));
            it = m_sessions.erase(it);
            --closed;
        } else {
            ++it;
        }
    }
}

std::vector<std::shared_ptr<GameSession>> GameServer::sessions() const
{
    std::lock_guard lock(m_mutex);
    return m_sessions;
}

std::shared_ptr<GameSession> GameServer::latestSession() const
{
    std::lock_guard lock(m_mutex);
    return m_sessions.empty() ? nullptr : m_sessions.back();
}

void GameServer::stop()
{
    std::vector<std::shared_ptr<GameSession>> sessions;
    {
        std::lock_guard lock(m_mutex);
        m_stopped = true;
        sessions.swap(m_sessions);
    }
    for (const auto& session : sessions)
        session->close();
}

} // namespace vrqserver
