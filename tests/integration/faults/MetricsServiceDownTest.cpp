// The metrics service is down for a whole session: its address takes
// connections and never answers them. Each bulk is posted once and given up
// at the request's time-out, memory stays flat, and stopping the game does
// not wait for the uploads.
#include "integration/faults/FaultTest.h"

#include "vrq/platform/services/HttpTransport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// A listener on 127.0.0.1 that reads each request and never answers it.
// Every request is kept as its request line and body.
class SilentService {
public:
    struct Request {
        std::string line; // "POST /report_metric_bulk?sig=... HTTP/1.1"
        std::string body;
    };

    SilentService()
    {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* raw = reinterpret_cast<sockaddr*>(&address);
        if (m_listener < 0 || ::bind(m_listener, raw, length) != 0 || ::listen(m_listener, 64) != 0
            || ::getsockname(m_listener, raw, &length) != 0)
            return;
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { run(); });
    }

    ~SilentService()
    {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        for (const auto& connection : m_connections)
            ::close(connection.fd);
        if (m_listener >= 0)
            ::close(m_listener);
    }

    bool valid() const { return m_port > 0; }
    std::string origin() const { return "http://127.0.0.1:" + std::to_string(m_port); }

    std::vector<Request> requests() const
    {
        std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    struct Connection {
        int fd;
        std::string received;
        bool complete = false;
    };

    void run()
    {
        while (!m_stop) {
            std::vector<pollfd> fds{{m_listener, POLLIN, 0}};
            for (const auto& connection : m_connections)
                fds.push_back({connection.fd, POLLIN, 0});
            if (::poll(fds.data(), fds.size(), 20) <= 0)
                continue;
            if (fds[0].revents & POLLIN) {
                const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0)
                    m_connections.push_back({fd, {}});
            }
            for (std::size_t i = 1; i < fds.size(); ++i)
                if (fds[i].revents & (POLLIN | POLLHUP | POLLERR))
                    readFrom(m_connections[i - 1]);
            // A connection the client closed is closed here too.
            std::erase_if(m_connections, [](const Connection& connection) { return connection.fd < 0; });
        }
    }

    void readFrom(Connection& connection)
    {
        char buffer[8192];
        const ssize_t n = ::recv(connection.fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            ::close(connection.fd);
            connection.fd = -1;
            return;
        }
        connection.received.append(buffer, static_cast<std::size_t>(n));
        const auto headersEnd = connection.received.find("\r\n\r\n");
        if (connection.complete || headersEnd == std::string::npos)
            return;
        std::size_t contentLength = 0;
        const auto at = connection.received.find("Content-Length: ");
        if (at != std::string::npos && at < headersEnd)
            contentLength = std::stoul(connection.received.substr(at + 16));
        if (connection.received.size() < headersEnd + 4 + contentLength)
            return;
        connection.complete = true;
        std::lock_guard lock(m_mutex);
        m_requests.push_back({connection.received.substr(0, connection.received.find("\r\n")),
                              connection.received.substr(headersEnd + 4, contentLength)});
    }

    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
    std::vector<Connection> m_connections; // on m_thread only
    mutable std::mutex m_mutex;
    std::vector<Request> m_requests; // guarded by m_mutex
};

std::size_t count(const std::vector<SilentService::Request>& requests, const std::string& path)
{
    return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), [&](const auto& request) {
        return request.line.find(" " + path + "?sig=") != std::string::npos;
    }));
}

class MetricsServiceDownTest : public vrqtest::FaultTest {};

TEST_F(MetricsServiceDownTest, EveryBulkIsPostedOnceMemoryStaysFlatAndStoppingDoesNotWait)
{
    std::vector<std::size_t> rssKb;
    {
        SilentService service;
        ASSERT_TRUE(service.valid());
        vrqtest::PlayerSession session(vrqtest::loopbackAddress());
        ASSERT_TRUE(session.ready());
        VRQHttpHelper::setBaseHost(service.origin());
        ASSERT_TRUE(playThisSession(session));
        // A bulk of ten metric records leaves about every ten seconds.
        const auto playing = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - playing < 30s) {
            session.settle(1s);
            rssKb.push_back(vrqtest::ProcessFootprint::now().rssKb);
        }
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying) << "the session stopped playing";
        EXPECT_GE(count(service.requests(), "/report_metric_bulk"), 2u);

        const auto stopping = std::chrono::steady_clock::now();
        session.player->stopGame();
        session.player.reset();
        const auto stopTook = std::chrono::steady_clock::now() - stopping;
        std::fprintf(stderr, "[ measured  ] stopGame and the player's release took %lld ms\n",
                     static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(stopTook).count()));
        EXPECT_LT(stopTook, 1s) << "stopping waited for the uploads";

        // Every upload under way ends by the request's time-out (10 s).
        const bool uploadsEnded = session.waitFor([] { return vrq::HttpTransport::shared().pendingCount() == 0; }, 12s);
        const auto endedAfter = std::chrono::steady_clock::now() - stopping;
        std::fprintf(stderr, "[ measured  ] the last upload ended %lld ms after the stop\n",
                     static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(endedAfter).count()));
        EXPECT_TRUE(uploadsEnded) << vrq::HttpTransport::shared().pendingCount() << " requests still pending";

        // Nothing is retried: each bulk reached the service once, and each of
        // them failed once, at the kit's side, as a transport failure.
        const auto requests = service.requests();
        std::set<std::string> bodies;
        for (const auto& request : requests)
            EXPECT_TRUE(bodies.insert(request.body).second) << "posted twice: " << request.line;
        std::size_t failures = 0;
        for (const auto& [level, line] : session.logs.lines())
            if (line.find("post url:" + service.origin()) != std::string::npos && line.find(" failed:") != std::string::npos)
                ++failures;
        EXPECT_EQ(failures, requests.size());
        std::fprintf(stderr, "[ measured  ] %zu metric and %zu log bulks posted, %zu failures logged\n",
                     count(requests, "/report_metric_bulk"), count(requests, "/report_log_bulk"), failures);
    }
    // Memory: from the session's fifth second to its end.
    ASSERT_GE(rssKb.size(), 10u);
    const auto peak = *std::max_element(rssKb.begin() + 4, rssKb.end());
    std::fprintf(stderr, "[ measured  ] resident memory: %zu MiB at 5 s, peak %zu MiB, %zu MiB at the end\n", rssKb[4] / 1024,
                 peak / 1024, rssKb.back() / 1024);
    if (vrqtest::kResidentMemoryIsMeaningful) {
        EXPECT_LT(peak - rssKb[4], 16u * 1024) << "resident memory grew while the uploads failed";
    }
    expectNothingLeftBehind();
    expectANewSessionPlays();
}

} // namespace
