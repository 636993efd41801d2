#include "support/LoopbackHttpServer.h"

#include <httplib.h>

namespace vrqtest {

LoopbackHttpServer::LoopbackHttpServer()
    : m_server(std::make_unique<httplib::Server>())
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
    m_server->Get(".*", route);
    m_server->Post(".*", route);
    m_port = m_server->bind_to_any_port("127.0.0.1");
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    m_server->stop();
    m_thread.join();
}

std::string LoopbackHttpServer::origin() const
{
    return "http://127.0.0.1:" + std::to_string(m_port);
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
