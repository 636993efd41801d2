#include "GameServer.h"

#include "vrq/platform/services/Crypto.h"

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

GameSession::Settings GameServer::nextSessionSettings(const std::string& token)
{
    GameSession::Settings settings;
    settings.id = std::to_string(m_nextSessionId++);
    settings.token = !token.empty() ? token : !m_options.token.empty() ? m_options.token : randomToken();
    settings.iceAddresses = m_options.iceAddresses;
    settings.video = m_options.video;
    settings.heartbeatTimeout = m_options.heartbeatTimeout;
    return settings;
}

std::shared_ptr<GameSession> GameServer::acceptOffer(const std::string& offerSdp,
                                                     GameSession::AnswerCompletion completion, const std::string& token)
{
    std::shared_ptr<GameSession> session = GameSession::create(nextSessionSettings(token));
    bool taken = false;
    SessionSetup setup;
    if (session) {
        std::lock_guard lock(m_mutex);
        if (!m_stopped) {
            m_sessions.push_back(session);
            m_tokens.insert(session->token());
            // Under the lock, so that a concurrent setInputObserver is not undone.
            session->setInputObserver(m_inputObserver);
            setup = m_setup;
            taken = true;
        }
    }
    if (!taken) {
        if (session)
            session->close();
        completion(std::nullopt, vrq::rtc::Error{"vrqserver", 4, "the game server cannot take a session"});
        return nullptr;
    }
    dropClosedSessions();
    // Listed first, so that a fault applied to the latest session meanwhile
    // reaches this one either way: through the list or through the setup.
    if (setup)
        setup(session);
    session->answer(offerSdp, std::move(completion));
    return session;
}

void GameServer::setSessionSetup(SessionSetup setup)
{
    std::lock_guard lock(m_mutex);
    m_setup = std::move(setup);
}

void GameServer::setInputObserver(GameSession::InputObserver observer)
{
    std::lock_guard lock(m_mutex);
    m_inputObserver = observer;
    for (const auto& session : m_sessions)
        session->setInputObserver(observer);
}

bool GameServer::issuedToken(const std::string& token) const
{
    std::lock_guard lock(m_mutex);
    return m_tokens.contains(token);
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
