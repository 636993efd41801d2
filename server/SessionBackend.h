#pragma once

#include "SessionCodec.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace httplib {
class Server;
}

namespace vrqserver {

class GameFaults;
class GameServer;

// The host's back end as the demo speaks it: "POST /session" with a client
// session text gets 200 and the remote session text for a new game session.
// An unreadable client session gets 400; an offer the game server cannot
// answer in time gets 503. While the faults refuse answers, the remote
// session is {"code":403} without an answer (still 200). The game server
// must outlive the installed routes.
class SessionBackend {
public:
    SessionBackend(GameServer& gameServer, RemoteSessionFields fields,
                   std::chrono::milliseconds answerTimeout = std::chrono::seconds(10),
                   std::shared_ptr<const GameFaults> faults = nullptr);

    void install(httplib::Server& server);

    // The remote session text for a client session text, or nothing (with the
    // HTTP status that says why). Blocks until the answer is ready.
    std::optional<std::string> remoteSessionFor(const std::string& clientSession, int* status);

    // Whether an offer is to be answered now (see GameFaults::admitAnswer);
    // may wait. Without faults, always.
    bool admitAnswer() const;
    // The remote session object answering the offer with a new session of
    // that token (empty: the game server's choice), or nothing with status
    // 503 when there is no answer in time. Blocks until the answer is ready.
    std::optional<nlohmann::json> answerOffer(const std::string& offerSdp, const std::string& token, int* status);
    // What a refused offer gets: {"code":403}.
    static nlohmann::json refusal();

    std::size_t sessionsServed() const { return m_served.load(); }
    const RemoteSessionFields& fields() const { return m_fields; }

private:
    std::string nextRequestId();

    GameServer& m_gameServer;
    const RemoteSessionFields m_fields;
    const std::chrono::milliseconds m_answerTimeout;
    const std::shared_ptr<const GameFaults> m_faults;
    std::atomic<unsigned> m_requests = 0;
    std::atomic<std::size_t> m_served = 0;
};

} // namespace vrqserver
