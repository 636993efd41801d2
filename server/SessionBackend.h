#pragma once

#include "SessionCodec.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace httplib {
class Server;
}

namespace vrqserver {

class GameServer;

// The host's back end as the demo speaks it: "POST /session" with a client
// session text gets 200 and the remote session text for a new game session.
// An unreadable client session gets 400; an offer the game server cannot
// answer in time gets 503. The game server must outlive the installed routes.
class SessionBackend {
public:
    SessionBackend(GameServer& gameServer, RemoteSessionFields fields,
                   std::chrono::milliseconds answerTimeout = std::chrono::seconds(10));

    void install(httplib::Server& server);

    // The remote session text for a client session text, or nothing (with the
    // HTTP status that says why). Blocks until the answer is ready.
    std::optional<std::string> remoteSessionFor(const std::string& clientSession, int* status);

    std::size_t sessionsServed() const { return m_served.load(); }

private:
    std::string nextRequestId();

    GameServer& m_gameServer;
    const RemoteSessionFields m_fields;
    const std::chrono::milliseconds m_answerTimeout;
    std::atomic<unsigned> m_requests = 0;
    std::atomic<std::size_t> m_served = 0;
};

} // namespace vrqserver
