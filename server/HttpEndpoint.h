#pragma once

#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace vrqserver {

// An HTTP server bound to one loopback address, serving from its own thread.
class HttpEndpoint {
public:
    // port 0 picks a free port. ok() is false when the address could not be
    // bound, also when another server listens there already.
    HttpEndpoint(std::string host, int port);
    ~HttpEndpoint();
    HttpEndpoint(const HttpEndpoint&) = delete;
    HttpEndpoint& operator=(const HttpEndpoint&) = delete;

    httplib::Server& server() { return *m_server; }
    bool start(); // serves the routes installed so far
    void stop();
    bool ok() const { return m_port > 0; }
    int port() const { return m_port; }
    std::string origin() const;

private:
    std::unique_ptr<httplib::Server> m_server;
    std::string m_host;
    int m_port = 0;
    std::thread m_thread;
};

} // namespace vrqserver
