#include "HttpEndpoint.h"

#include <httplib.h>

#include <chrono>

namespace vrqserver {

HttpEndpoint::HttpEndpoint(std::string host, int port)
    : m_server(std::make_unique<httplib::Server>())
    , m_host(std::move(host))
{
    m_server->set_keep_alive_max_count(1);
    // httplib's default also sets SO_REUSEPORT, with which a second server
    // would share a port already in use instead of failing to bind it.
    m_server->set_socket_options([](socket_t socket) {
        int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    m_port = port == 0 ? m_server->bind_to_any_port(m_host) : (m_server->bind_to_port(m_host, port) ? port : -1);
}

HttpEndpoint::~HttpEndpoint()
{
    stop();
}

bool HttpEndpoint::start()
{
    if (!ok() || m_thread.joinable())
        return ok();
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void HttpEndpoint::stop()
{
    if (!m_thread.joinable())
        return;
    m_server->stop();
    m_thread.join();
}

std::string HttpEndpoint::origin() const
{
    return "http://" + m_host + ":" + std::to_string(m_port);
}

} // namespace vrqserver
