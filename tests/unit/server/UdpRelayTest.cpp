#include "UdpRelay.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

using vrqserver::UdpRelay;

namespace {

constexpr const char* kHost = "127.0.0.1";

// A UDP socket on loopback that the test drives by hand.
class Peer {
public:
    Peer()
        : m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = addressFor(0);
        socklen_t length = sizeof address;
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
    }
    ~Peer() { ::close(m_fd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    static sockaddr_in addressFor(int port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, kHost, &address.sin_addr);
        return address;
    }
    int port() const { return m_port; }

    // The next datagram and the port it came from; nothing within two seconds.
    std::optional<std::pair<std::string, int>> receive()
    {
        pollfd polled{m_fd, POLLIN, 0};
        if (::poll(&polled, 1, 2000) != 1)
            return std::nullopt;
        char buffer[2048];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size = ::recvfrom(m_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (size < 0)
            return std::nullopt;
        return std::make_pair(std::string(buffer, static_cast<std::size_t>(size)), static_cast<int>(ntohs(from.sin_port)));
    }
    void sendTo(int port, const std::string& bytes)
    {
        sockaddr_in to = addressFor(port);
        ::sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }

private:
    const int m_fd;
    int m_port = 0;
};

class Delivered {
public:
    UdpRelay::Deliver callback()
    {
        return [this](const std::string& label, const std::string& bytes) {
            std::lock_guard lock(m_mutex);
            m_items.emplace_back(label, bytes);
        };
    }
    bool waitFor(std::size_t count)
    {
        for (int i = 0; i < 200; ++i) {
            {
                std::lock_guard lock(m_mutex);
                if (m_items.size() >= count)
                    return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    std::vector<std::pair<std::string, std::string>> items() const
    {
        std::lock_guard lock(m_mutex);
        return m_items;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, std::string>> m_items;
};

} // namespace

TEST(UdpRelayTest, RelaysEachMessageAsOneDatagramFromTheRoutesOwnPortAndBack)
{
    Delivered delivered;
    UdpRelay relay(kHost, delivered.callback());
    Peer service;
    ASSERT_TRUE(relay.addRoute("custom_trans_1", service.port()));
    ASSERT_TRUE(relay.addRoute("custom_trans_2", service.port()));
    const auto port = relay.localPort("custom_trans_1");
    ASSERT_TRUE(port);
    EXPECT_NE(port, relay.localPort("custom_trans_2"));

    ASSERT_TRUE(relay.send("custom_trans_1", "hello"));
    ASSERT_TRUE(relay.send("custom_trans_1", std::string("\0\1", 2)));
    EXPECT_EQ(service.receive(), std::make_pair(std::string("hello"), *port));
    EXPECT_EQ(service.receive(), std::make_pair(std::string("\0\1", 2), *port));

    service.sendTo(*port, "back");
    service.sendTo(*relay.localPort("custom_trans_2"), "other");
    ASSERT_TRUE(delivered.waitFor(2));
    auto items = delivered.items();
    std::sort(items.begin(), items.end());
    EXPECT_EQ(items, (std::vector<std::pair<std::string, std::string>>{{"custom_trans_1", "back"}, {"custom_trans_2", "other"}}));

    // Routed again, a label keeps its socket and sends to the new port.
    Peer moved;
    ASSERT_TRUE(relay.addRoute("custom_trans_1", moved.port()));
    EXPECT_EQ(relay.localPort("custom_trans_1"), port);
    ASSERT_TRUE(relay.send("custom_trans_1", "moved"));
    EXPECT_EQ(moved.receive(), std::make_pair(std::string("moved"), *port));
}

TEST(UdpRelayTest, RefusesBadPortsUnknownLabelsTooManyRoutesAndEverythingOnceStopped)
{
    UdpRelay relay(kHost, [](const std::string&, const std::string&) {});
    EXPECT_FALSE(relay.addRoute("a", 0));
    EXPECT_FALSE(relay.addRoute("a", 65536));
    EXPECT_FALSE(relay.send("a", "x"));
    for (std::size_t i = 0; i < UdpRelay::kMaxRoutes; ++i)
        ASSERT_TRUE(relay.addRoute("route" + std::to_string(i), 9)) << i;
    EXPECT_FALSE(relay.addRoute("one-too-many", 9));

    relay.stop();
    relay.stop();
    EXPECT_FALSE(relay.send("route0", "x"));
    EXPECT_FALSE(relay.addRoute("late", 9));
    EXPECT_FALSE(relay.localPort("route0")) << "the sockets are closed";
}

TEST(UdpRelayTest, AStopFromInsideTheDeliveryEndsTheRelayWithoutWaitingForItself)
{
    std::atomic<UdpRelay*> self = nullptr;
    std::atomic<int> deliveries = 0;
    UdpRelay relay(kHost, [&](const std::string&, const std::string&) {
        ++deliveries;
        self.load()->stop();
    });
    self = &relay;
    Peer service;
    ASSERT_TRUE(relay.addRoute("a", service.port()));
    service.sendTo(*relay.localPort("a"), "one");
    for (int i = 0; i < 200 && deliveries.load() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(deliveries.load(), 1);
    EXPECT_FALSE(relay.send("a", "after"));
}
