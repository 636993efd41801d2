#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace httplib {
class Server;
}

namespace vrqserver {

class GameServer;
class SessionBackend;

// One request the reconnect endpoint saw: its query values as received
// (decoded), whether its signature was right, and the HTTP status it got.
struct ReconnectRecord {
    std::string token;
    std::string streamId;
    std::string ts;
    std::string uid;
    std::string sig;
    bool signatureValid = false;
    int status = 0;
};

// "POST /cloud_gaming/reconnect?token=T&stream_id=T&ts=TS&uid=U&sig=S" with
// the client's new session as JSON ({"type":"offer","sdp":...}) in the body.
// S must be md5hex(T + TS + T) and T a token the game server gave a session;
// otherwise 403 {"code":403,"msg":...}. An unreadable body gets 400
// {"code":400}. Otherwise the sessions holding T are closed and a new one
// with the same token answers the offer: 200 with the remote session object
// (not base64), or {"code":403} while answers are refused, or 503 when no
// answer came in time. Thread-safe; the servers must outlive the routes.
class ReconnectBackend {
public:
    static constexpr const char* kPath = "/cloud_gaming/reconnect";
    // Requests kept for inspection; older ones are dropped.
    static constexpr std::size_t kMaxRecords = 256;

    ReconnectBackend(GameServer& gameServer, SessionBackend& sessions);
    void install(httplib::Server& server);

    static std::string signatureFor(const std::string& token, const std::string& ts);

    std::size_t reconnectsServed() const { return m_served.load(); }
    std::vector<ReconnectRecord> requests() const;

private:
    // The status and body for a request.
    std::pair<int, std::string> handle(ReconnectRecord& record, const std::string& body);
    void closeSessionsOf(const std::string& token);
    void keep(ReconnectRecord record);

    GameServer& m_gameServer;
    SessionBackend& m_sessions;
    std::atomic<std::size_t> m_served = 0;
    mutable std::mutex m_mutex;
    std::vector<ReconnectRecord> m_records; // guarded by m_mutex
};

} // namespace vrqserver
