// Starting from an experience code, and custom transmission channels relayed
// to a real UDP port by the reference game.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"
#include "support/RecordingChannelDelegate.h"

#include "vrq/core/VRQCustomTransChannel.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// A UDP service on the game server's host that sends every datagram back,
// reversed, so that an echo is told apart from the request. Stops by itself
// when destroyed (its loop wakes up every 50 ms).
class UdpReverseEcho {
public:
    explicit UdpReverseEcho(const std::string& host)
    {
        m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        ::inet_pton(AF_INET, host.c_str(), &address.sin_addr);
        socklen_t length = sizeof address;
        if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), length) != 0
            || ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~UdpReverseEcho()
    {
        m_stop = true;
        if (m_thread.joinable())
            m_thread.join();
        ::close(m_socket);
    }
    int port() const { return m_port; }
    std::size_t datagrams() const { return m_datagrams.load(); }

private:
    void serve()
    {
        while (!m_stop) {
            pollfd entry{m_socket, POLLIN, 0};
            if (::poll(&entry, 1, 50) <= 0)
                continue;
            char buffer[2048];
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const auto size = ::recvfrom(m_socket, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
            if (size <= 0)
                continue;
            ++m_datagrams;
            std::string reply(buffer, static_cast<std::size_t>(size));
            std::reverse(reply.begin(), reply.end());
            ::sendto(m_socket, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
        }
    }

    int m_socket = -1;
    int m_port = 0;
    std::atomic<bool> m_stop = false;
    std::atomic<std::size_t> m_datagrams = 0;
    std::thread m_thread;
};

TEST(CustomChannelTest, AChannelBindsToAUdpPortAndRelaysBothWays)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    UdpReverseEcho echo(vrqtest::loopbackAddress());
    ASSERT_GT(echo.port(), 0);
    auto listener = std::make_shared<vrqtest::RecordingChannelDelegate>();

    EXPECT_FALSE(session.player->openCustomTransChannel(0, listener));
    EXPECT_FALSE(session.player->openCustomTransChannel(echo.port(), {}));
    auto channel = session.player->openCustomTransChannel(echo.port(), listener);
    ASSERT_TRUE(channel);
    EXPECT_EQ(channel->channelLabel(), "custom_trans_1"); // the refused ones took no number
    ASSERT_TRUE(session.waitFor([&] { return !listener->events.empty(); }));
    EXPECT_EQ(listener->events, std::vector<std::string>{"success:" + std::to_string(echo.port())});
    EXPECT_TRUE(channel->isConnected());

    std::string payload(1200, '\0');
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>(i * 7);
    EXPECT_EQ(channel->sendData(payload + "x"), -1);
    EXPECT_EQ(channel->sendData(payload), 0);
    ASSERT_TRUE(session.waitFor([&] { return !listener->received.empty(); }, 5s));
    std::string reversed(payload.rbegin(), payload.rend());
    EXPECT_EQ(listener->received.front(), reversed);
    EXPECT_EQ(echo.datagrams(), 1u);

    channel->close();
    EXPECT_EQ(channel->sendData("after close"), 0); // sending still works; nothing is delivered
    session.settle(500ms);
    EXPECT_EQ(listener->received.size(), 1u);
}

TEST(CustomChannelTest, AGameStartsFromAnExperienceCode)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.waitForEvent("init"));
    session.player->startGameWithExperienceCode("unknown-code", nullptr);
    ASSERT_TRUE(session.waitFor([&] { return session.logs.contains("createExperienceSession failed, result:"); }));

    httplib::Client backEnd(session.server->origin());
    const json offer = {{"experience_code", "demo-42"}, {"client_session", session.delegate->clientSession()}};
    auto registered = backEnd.Post("/ExperienceOffer", offer.dump(), "application/json");
    ASSERT_TRUE(registered);
    ASSERT_EQ(registered->status, 200);
    VRQError error{"untouched", 0, {}, {}};
    session.player->startGameWithExperienceCode("demo-42", &error);
    ASSERT_TRUE(session.waitForEvent("video"));
    EXPECT_EQ(error.domain, "untouched");
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
}

} // namespace
