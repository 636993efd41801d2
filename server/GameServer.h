#pragma once

#include "GameSession.h"
#include "MediaLaunch.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vrqserver {

// The reference game server: one GameSession per client offer, each sending
// the same test scene. Thread-safe. Tests start it in-process; the
// vrq-game-server binary puts the back end in front of it.
class GameServer {
public:
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
    // Nothing, with the completion called with an error, when the server is
    // stopped or no session can be created.
    std::shared_ptr<GameSession> acceptOffer(const std::string& offerSdp, GameSession::AnswerCompletion completion);

    // Sessions in the order they were created. When a session is added, the
    // oldest closed ones are dropped, so that only the last few closed ones stay.
    std::vector<std::shared_ptr<GameSession>> sessions() const;
    std::shared_ptr<GameSession> latestSession() const;

    // Closes every session; later offers are refused. Idempotent.
    void stop();

private:
    explicit GameServer(Options options);
    GameSession::Settings nextSessionSettings();
    void dropClosedSessions();

    const Options m_options;
    std::atomic<int> m_nextSessionId = 1;
    mutable std::mutex m_mutex; // guards the members below
    std::vector<std::shared_ptr<GameSession>> m_sessions;
    bool m_stopped = false;
};

} // namespace vrqserver
