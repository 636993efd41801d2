#pragma once

#include "GameFaults.h"
#include "GameServer.h"
#include "MetricsIngest.h"
#include "ReconnectBackend.h"
#include "SessionCodec.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace httplib {
class Server;
}

namespace vrqserver {

class CursorImage;
class ExperienceBackend;
class GameBehaviour;
class HttpEndpoint;
class SessionBackend;

// The whole back end of the game on one loopback host:
// - on origin(): "POST /session", "/ExperienceOffer", "/CreateExperienceSession",
//   the signed metrics ingest and the fault controls ("/control/*", see GameFaults);
//   "GET /control/pointer": the latest session's touch and mouse input
//   (PointerState::describe), and "GET /control/gamepad": its virtual
//   controller, keys held and key sequences (GamepadState::describe);
//   both 404 {"code":404} when there is no session;
// - on host:reconnectPort: "POST /cloud_gaming/reconnect" (see ReconnectBackend);
// - the game server, whose every session plays the game (see GameBehaviour).
//
// Used in-process by tests and the demo host, and by vrq-game-server.
// Thread-safe. Since the client always reconnects to port 7392, servers that
// run at the same time need hosts of their own (127.0.0.N).
class ReferenceServer {
public:
    struct Options {
        std::string host = "127.0.0.1"; // every endpoint binds here
        int backendPort = 0;            // 0: any free port
        int reconnectPort = 7392;       // 0: any free port (a client cannot reach it then)
        std::string metricKey = "vrq-reference-metric-key";
        GameServer::Options game;  // its host is replaced by host
        RemoteSessionFields fields; // serverIp is replaced by host, metricKey by metricKey
        std::chrono::milliseconds answerTimeout{10000};
    };
    using InputObserver = GameSession::InputObserver;

    // Nothing, with a line on stderr saying why, when an address cannot be
    // bound or the media engine cannot start.
    static std::unique_ptr<ReferenceServer> start(Options options);
    ~ReferenceServer();
    ReferenceServer(const ReferenceServer&) = delete;
    ReferenceServer& operator=(const ReferenceServer&) = delete;

    const Options& options() const { return m_options; }
    // "http://host:port" of the back end.
    std::string origin() const;
    int reconnectPort() const;

    GameServer& gameServer() { return *m_gameServer; }
    MetricsIngest& ingest() { return *m_ingest; }
    GameFaults& faults() { return *m_faults; }
    // The behaviour playing a session, while the session lives.
    std::shared_ptr<GameBehaviour> behaviourOf(const GameSession& session) const;
    // Called for every "km" message as it arrives, on the engine's thread
    // that delivers it (see GameSession::setInputObserver).
    void setInputObserver(InputObserver observer);

    // Offers answered by /session, reconnects and experience codes together.
    std::size_t sessionsServed() const;
    // Reconnects answered with a new session.
    std::size_t reconnectsServed() const;
    // Every reconnect request seen, oldest first.
    std::vector<ReconnectRecord> reconnectRequests() const;

    // Stops the endpoints and closes every session. Idempotent; joins every thread it started.
    void stop();

private:
    explicit ReferenceServer(Options options);
    bool bind();
    void installInputRoutes(httplib::Server& server);
    // A GET of path answering what read makes of the latest session.
    void installSessionRead(httplib::Server& server, const std::string& path,
                            std::function<nlohmann::json(const GameSession&)> read);
    void setUpSession(const std::shared_ptr<GameSession>& session);

    const Options m_options;
    std::shared_ptr<GameServer> m_gameServer;
    std::shared_ptr<GameFaults> m_faults;
    std::shared_ptr<const CursorImage> m_cursor;
    std::unique_ptr<MetricsIngest> m_ingest;
    std::unique_ptr<SessionBackend> m_sessions;
    std::unique_ptr<ExperienceBackend> m_experience;
    std::unique_ptr<ReconnectBackend> m_reconnect;
    std::unique_ptr<HttpEndpoint> m_backendEndpoint;
    std::unique_ptr<HttpEndpoint> m_reconnectEndpoint;

    std::atomic<bool> m_stopped = false;
    mutable std::mutex m_mutex; // guards m_behaviours
    std::map<std::string, std::weak_ptr<GameBehaviour>> m_behaviours; // by session id
};

} // namespace vrqserver
