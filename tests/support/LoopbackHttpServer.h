#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

namespace vrqtest {

struct RecordedRequest {
    std::string method;
    std::string path;   // without the query
    std::string target; // path and query as sent
    std::string query;  // raw query text
    std::string body;
    std::string contentType;
};

// A real HTTP server on 127.0.0.1 and a free port, in a thread of its own.
// It records every request; by default it answers 200 with "{}".
class LoopbackHttpServer {
public:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    LoopbackHttpServer();
    // A fixed address and port, for endpoints whose port is part of the protocol.
    // valid() is false when the port could not be bound.
    LoopbackHttpServer(const std::string& host, int port);
    bool valid() const { return m_port > 0; }
    ~LoopbackHttpServer();

    int port() const { return m_port; }
    std::string origin() const; // http://HOST:PORT

    // Replaces the default answer for one path (exact match, query ignored).
    void setHandler(const std::string& path, Handler handler);

    std::vector<RecordedRequest> requests() const;
    std::vector<RecordedRequest> requestsTo(const std::string& path) const;
    // Waits, without iterating any main loop, until `count` requests reached `path`.
    bool waitForRequests(const std::string& path, std::size_t count, std::chrono::milliseconds timeout) const;

private:
    void record(const httplib::Request& request);

    void start(const std::string& host, int port);

    std::unique_ptr<httplib::Server> m_server;
    std::string m_host;
    int m_port = 0;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::vector<RecordedRequest> m_requests;
    std::vector<std::pair<std::string, Handler>> m_handlers;
};

} // namespace vrqtest
