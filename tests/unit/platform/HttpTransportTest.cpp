#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/HttpTransport.h"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;
using vrq::HttpRequest;
using vrq::HttpResponse;
using vrq::HttpTransport;

namespace {

struct Outcome {
    bool done = false;
    bool onMainThread = false;
    std::optional<vrq::HttpError> error;
    HttpResponse response;
};

// Completes `outcome` on whichever thread the transport calls back on.
HttpTransport::Completion recordInto(Outcome& outcome)
{
    return [&outcome](std::optional<vrq::HttpError> error, HttpResponse response) {
        outcome.onMainThread = vrq::isMainThread();
        outcome.error = std::move(error);
        outcome.response = std::move(response);
        outcome.done = true;
    };
}

HttpRequest requestTo(std::string url)
{
    HttpRequest request;
    request.url = std::move(url);
    return request;
}

Outcome sendAndWait(HttpRequest request)
{
    Outcome outcome;
    HttpTransport::shared().send(std::move(request), recordInto(outcome));
    vrq::runMainLoopUntil([&] { return outcome.done; }, 10s);
    return outcome;
}

// A loopback socket: bound and, if asked, listening. A bound socket that does
// not listen refuses connections, and keeps its port from being reused meanwhile.
class LoopbackSocket {
public:
    explicit LoopbackSocket(bool listening)
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        auto* raw = reinterpret_cast<sockaddr*>(&address);
        if (m_fd < 0 || ::bind(m_fd, raw, length) != 0 || ::getsockname(m_fd, raw, &length) != 0 ||
            (listening && ::listen(m_fd, 1) != 0))
            throw std::runtime_error("loopback socket");
        m_port = ntohs(address.sin_port);
    }
    ~LoopbackSocket() { ::close(m_fd); }
    LoopbackSocket(const LoopbackSocket&) = delete;
    LoopbackSocket& operator=(const LoopbackSocket&) = delete;

    int fd() const { return m_fd; }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(m_port) + path; }

private:
    int m_fd = -1;
    int m_port = 0;
};

// Lets a server handler wait until the test releases it. Handlers hold it
// through a shared_ptr: one that starts only after the test has ended must
// find it open, not destroyed.
class Gate {
public:
    void open()
    {
        std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, 10s, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

// cpp-httplib on 127.0.0.1 and a free port, answering "{}" unless a handler
// is set. It closes each connection after one answer, so that stopping it
// need not wait for the client's idle keep-alive connections to time out.
class TestServer {
public:
    TestServer()
    {
        m_server.set_keep_alive_max_count(1);
        m_server.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            route(request, response);
        });
        m_server.Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
            route(request, response);
        });
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        for (int i = 0; i < 2000 && !m_server.is_running(); ++i)
            std::this_thread::sleep_for(1ms);
    }
    ~TestServer()
    {
        m_server.stop();
        m_thread.join();
    }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    bool isRunning() const { return m_port > 0 && m_server.is_running(); }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(m_port) + path; }

    void setHandler(const std::string& path, httplib::Server::Handler handler)
    {
        std::lock_guard lock(m_mutex);
        m_handlers[path] = std::move(handler);
    }

    int requestsTo(const std::string& path) const
    {
        std::lock_guard lock(m_mutex);
        const auto it = m_counts.find(path);
        return it == m_counts.end() ? 0 : it->second;
    }

private:
    void route(const httplib::Request& request, httplib::Response& response)
    {
        httplib::Server::Handler handler;
        {
            std::lock_guard lock(m_mutex);
            ++m_counts[request.path];
            if (const auto it = m_handlers.find(request.path); it != m_handlers.end())
                handler = it->second;
        }
        if (handler)
            handler(request, response);
        else
            response.set_content("{}", "application/json");
    }

    httplib::Server m_server;
    int m_port = -1;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::map<std::string, httplib::Server::Handler> m_handlers;
    std::map<std::string, int> m_counts;
};

class HttpTransportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_server.isRunning());
        // Requests of earlier tests in this process finish first, so that counts start at 0.
        ASSERT_TRUE(vrq::runMainLoopUntil([] { return HttpTransport::shared().pendingCount() == 0; }, 15s));
    }

    TestServer m_server;
};

} // namespace

TEST_F(HttpTransportTest, ServerErrorStatusIsAnAnswerAndCompletesOnTheMainThread)
{
    m_server.setHandler("/fail", [](const httplib::Request&, httplib::Response& response) {
        response.status = 500;
        response.set_content("internal trouble", "text/plain");
    });
    Outcome outcome;
    int pendingDuringCompletion = -1;
    HttpTransport::shared().send(requestTo(m_server.url("/fail")),
                                 [&](std::optional<vrq::HttpError> error, HttpResponse response) {
                                     pendingDuringCompletion = HttpTransport::shared().pendingCount();
                                     recordInto(outcome)(std::move(error), std::move(response));
                                 });
    EXPECT_EQ(HttpTransport::shared().pendingCount(), 1);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return outcome.done; }, 10s));

    EXPECT_FALSE(outcome.error.has_value());
    EXPECT_EQ(outcome.response.status, 500);
    EXPECT_EQ(outcome.response.body, "internal trouble");
    EXPECT_TRUE(outcome.onMainThread);
    // Still counted while its completion runs, so that shutdown waits for it.
    EXPECT_EQ(pendingDuringCompletion, 1);
    EXPECT_EQ(HttpTransport::shared().pendingCount(), 0);
}

TEST_F(HttpTransportTest, PostCarriesMethodHeadersAndExactBody)
{
    std::string method, body, contentType, custom;
    m_server.setHandler("/upload", [&](const httplib::Request& request, httplib::Response& response) {
        method = request.method;
        body = request.body;
        contentType = request.get_header_value("Content-Type");
        custom = request.get_header_value("X-Vrq-Test");
        response.set_content("ok", "text/plain");
    });
    // Large enough for curl's "100 Continue" logic, with a zero byte inside.
    std::string payload(200000, 'x');
    payload[10] = '\0';
    payload.back() = 'z';

    HttpRequest request = requestTo(m_server.url("/upload"));
    request.method = "POST";
    request.headers = {{"Content-Type", "application/json"}, {"X-Vrq-Test", "yes"}};
    request.body = payload;
    const Outcome outcome = sendAndWait(request);

    ASSERT_TRUE(outcome.done);
    EXPECT_FALSE(outcome.error.has_value()) << outcome.error->toString();
    EXPECT_EQ(outcome.response.status, 200);
    EXPECT_EQ(method, "POST");
    EXPECT_EQ(body, payload);
    EXPECT_EQ(contentType, "application/json");
    EXPECT_EQ(custom, "yes");
}

TEST_F(HttpTransportTest, AnswerLaterThanTheTimeoutIsATimeoutError)
{
    auto gate = std::make_shared<Gate>();
    m_server.setHandler("/slow", [gate](const httplib::Request&, httplib::Response&) { gate->wait(); });

    HttpRequest request = requestTo(m_server.url("/slow"));
    request.timeout = 150ms;
    const Outcome outcome = sendAndWait(request);
    gate->open();

    ASSERT_TRUE(outcome.done);
    ASSERT_TRUE(outcome.error.has_value());
    EXPECT_EQ(outcome.error->code, CURLE_OPERATION_TIMEDOUT);
}

TEST_F(HttpTransportTest, GarbledAnswerIsATransportError)
{
    const LoopbackSocket listener(true);
    auto server = std::async(std::launch::async, [&] {
        pollfd ready{listener.fd(), POLLIN, 0};
        if (::poll(&ready, 1, 10000) != 1)
            return;
        const int connection = ::accept(listener.fd(), nullptr, nullptr);
        char request[4096];
        [[maybe_unused]] const auto received = ::recv(connection, request, sizeof(request), 0);
        const std::string garbage = "definitely not HTTP\r\n\r\n";
        [[maybe_unused]] const auto sent = ::send(connection, garbage.data(), garbage.size(), MSG_NOSIGNAL);
        ::close(connection);
    });

    const Outcome outcome = sendAndWait(requestTo(listener.url("/")));
    server.wait();

    ASSERT_TRUE(outcome.done);
    ASSERT_TRUE(outcome.error.has_value());
    EXPECT_EQ(outcome.error->domain, HttpTransport::kErrorDomain);
    EXPECT_NE(outcome.error->code, CURLE_OK);
}

TEST_F(HttpTransportTest, SlowAnswerDoesNotHoldBackOtherRequests)
{
    auto gate = std::make_shared<Gate>();
    m_server.setHandler("/slow", [gate](const httplib::Request&, httplib::Response& response) {
        gate->wait();
        response.set_content("slow", "text/plain");
    });
    Outcome slow;
    HttpTransport::shared().send(requestTo(m_server.url("/slow")), recordInto(slow));
    // The slow request is waiting in the server before the fast one is sent.
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return m_server.requestsTo("/slow") == 1; }, 10s));

    const Outcome fast = sendAndWait(requestTo(m_server.url("/fast")));
    EXPECT_TRUE(fast.done);
    EXPECT_FALSE(slow.done);
    gate->open();

    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return slow.done; }, 10s));
    EXPECT_EQ(slow.response.body, "slow");
}

TEST_F(HttpTransportTest, RequestFromAnotherThreadCompletesOnTheMainThread)
{
    Outcome outcome;
    std::thread([&] { HttpTransport::shared().send(requestTo(m_server.url("/")), recordInto(outcome)); }).join();

    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return outcome.done; }, 10s));
    EXPECT_TRUE(outcome.onMainThread);
    EXPECT_EQ(outcome.response.body, "{}");
}

TEST_F(HttpTransportTest, ThrowingCompletionLeavesTheTransportWorking)
{
    bool threw = false;
    HttpTransport::shared().send(requestTo(m_server.url("/")), [&](std::optional<vrq::HttpError>, HttpResponse) {
        threw = true;
        throw std::runtime_error("host bug");
    });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return threw; }, 10s));

    const Outcome next = sendAndWait(requestTo(m_server.url("/")));
    EXPECT_TRUE(next.done);
    EXPECT_FALSE(next.error.has_value());
    EXPECT_EQ(HttpTransport::shared().pendingCount(), 0);
}
