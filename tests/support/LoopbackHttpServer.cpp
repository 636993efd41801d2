#include "support/LoopbackHttpServer.h"

#include <httplib.h>

namespace vrqtest {

LoopbackHttpServer::LoopbackHttpServer()
    : LoopbackHttpServer("127.0.0.1", 0)
{
}

LoopbackHttpServer::LoopbackHttpServer(const std::string& host, int port)
    : m_server(std::make_unique<httplib::Server>())
    , m_host(host)
{
    start(host, port);
}

void LoopbackHttpServer::start(const std::string& host, int port)
{
    auto route = [this](const httplib::Request& request, httplib::Response& response) {
        record(request);
        Handler handler;
        {
            std::lock_guard lock(m_mutex);
            for (const auto& [path, candidate] : m_handlers)
                if (path == request.path)
                    handler = candidate;
        }
        if (handler)
            handler(request, response);
        else
            response.set_content("{}", "application/json");
    };
    // One request per connection, so that stopping never waits for an idle keep-alive.
    m_server->set_keep_alive_max_count(1);
    m_server->Get(".*", route);
    m_server->Post(".*", route);
    if (port == 0)
        m_port = m_server->bind_to_any_port(host);
    else
        m_port = m_server->bind_to_port(host, port) ? port : -1;
    if (m_port <= 0)
        return;
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    if (!m_thread.joinable())
        return;
    m_server->stop();
    m_thread.join();
}

std::string LoopbackHttpServer::origin() const
{
    return "http://" + m_host + ":" + std::to_string(m_port);
}

void LoopbackHttpServer::setHandler(const std::string& path, Handler handler)
{
    std::lock_guard lock(m_mutex);
    m_handlers.emplace_back(path, std::move(handler));
}

void LoopbackHttpServer::record(const httplib::Request& request)
{
    RecordedRequest recorded;
    recorded.method = request.method;
    recorded.path = request.path;
    recorded.target = request.target;
    const auto question = request.target.find('?');
    if (question != std::string::npos)
        recorded.query = request.target.substr(question + 1);
    recorded.body = request.body;
    recorded.contentType = request.get_header_value("Content-Type");
    std::lock_guard lock(m_mutex);
    m_requests.push_back(std::move(recorded));
}

std::vector<RecordedRequest> LoopbackHttpServer::requests() const
{
    std::lock_guard lock(m_mutex);
    return m_requests;
}

std::vector<RecordedRequest> LoopbackHttpServer::requestsTo(const std::string& path) const
{
    std::vector<RecordedRequest> matching;
    for (auto& request : requests())
        if (request.path == path)
            matching.push_back(request);
    return matching;
}

bool LoopbackHttpServer::waitForRequests(const std::string& path, std::size_t count,
                                         std::chrono::milliseconds timeout) const
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (requestsTo(path).size() < count) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace vrqtest
