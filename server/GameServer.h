#pragma once

#include "GameSession.h"
#include "MediaLaunch.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace vrqserver {

// The reference game server: one GameSession per client offer, each sending
// the same test scene. Thread-safe. Tests start it in-process; ReferenceServer
// puts the back end in front of it.
class GameServer {
public:
    // Called for every new session before it answers its offer (so before any
    // of its channels opens), on the thread that called acceptOffer.
    using SessionSetup = std::function<void(const std::shared_ptr<GameSession>& session)>;

    struct Options {
        std::string host = "127.0.0.1";
        // Local addresses ICE may use; empty: the host address alone.
        std::vector<std::string> iceAddresses;
        // The token that "hb" replies carry; empty: a fresh random token per session.
        std::string token;
        VideoSettings video;
        // See GameSession::Settings; zero keeps sessions until they are closed.
        std::chrono::milliseconds heartbeatTimeout{0};
    };

    // Nothing when the media engine cannot start.
    static std::unique_ptr<GameServer> start(Options options);
    ~GameServer();
    GameServer(const GameServer&) = delete;
    GameServer& operator=(const GameServer&) = delete;

    const Options& options() const { return m_options; }

    // Creates a session for the offer and answers it (see GameSession::answer).
    // The session's token is the given one, or when that is empty the
    // configured token, or a fresh random one. Nothing, with the completion
    // called with an error, when the server is stopped or no session can be created.
    std::shared_ptr<GameSession> acceptOffer(const std::string& offerSdp, GameSession::AnswerCompletion completion,
                                             const std::string& token = {});

    // Set these before offers arrive; they apply to the sessions created afterwards.
    void setSessionSetup(SessionSetup setup);
    // Applies to the current sessions too. See GameSession::setInputObserver.
    void setInputObserver(GameSession::InputObserver observer);

    // Whether some session of this server was given the token.
    bool issuedToken(const std::string& token) const;

    // Sessions in the order they were created. When a session is added, the
    // oldest closed ones are dropped, so that only the last few closed ones stay.
    std::vector<std::shared_ptr<GameSession>> sessions() const;
    std::shared_ptr<GameSession> latestSession() const;

    // Closes every session; later offers are refused. Idempotent.
    void stop();

private:
    explicit GameServer(Options options);
    GameSession::Settings nextSessionSettings(const std::string& token);
    void dropClosedSessions();

    const Options m_options;
    std::atomic<int> m_nextSessionId = 1;
    mutable std::mutex m_mutex; // guards the members below
    std::vector<std::shared_ptr<GameSession>> m_sessions;
    std::set<std::string> m_tokens;
    SessionSetup m_setup;
    GameSession::InputObserver m_inputObserver;
    bool m_stopped = false;
};

} // namespace vrqserver
