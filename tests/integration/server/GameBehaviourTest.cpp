// What the game does on each channel of a session served by the reference
// server, seen from a kit-like offerer. Each test has its own 127.0.0.N,
// since every server holds the fixed reconnect port of its host.
#include "PngInfo.h"
#include "ServedClient.h"
#include "support/LoopbackAddress.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

using nlohmann::json;
using vrqtest::rtc::waitUntil;
using namespace std::chrono_literals;

namespace {

sockaddr_in loopbackAddress(const std::string& host, int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    return address;
}

// Whether a UDP socket can be bound to host:port now.
bool canBindUdp(const std::string& host, int port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopbackAddress(host, port);
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

// A UDP service on loopback that sends every datagram back where it came from.
class UdpEcho {
public:
    explicit UdpEcho(const std::string& host)
        : m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = loopbackAddress(host, 0);
        socklen_t length = sizeof address;
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
            m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~UdpEcho()
    {
        m_stop = true;
        m_thread.join();
        ::close(m_fd);
    }
    int port() const { return m_port; }
    std::vector<std::string> received() const
    {
        std::lock_guard lock(m_mutex);
        return m_received;
    }

private:
    void serve()
    {
        char buffer[2048];
        while (!m_stop) {
            pollfd polled{m_fd, POLLIN, 0};
            if (::poll(&polled, 1, 50) <= 0)
                continue;
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t size = ::recvfrom(m_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
            if (size < 0)
                continue;
            {
                std::lock_guard lock(m_mutex);
                m_received.emplace_back(buffer, static_cast<std::size_t>(size));
            }
            ::sendto(m_fd, buffer, static_cast<std::size_t>(size), 0, reinterpret_cast<sockaddr*>(&from), length);
        }
    }

    const int m_fd;
    int m_port = 0;
    std::atomic<bool> m_stop = false;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_received;
    std::thread m_thread;
};

std::string text(const std::optional<vrq::rtc::DataBuffer>& buffer)
{
    return buffer ? buffer->data : std::string("(nothing)");
}

std::string ackReply(int seq, const json& data)
{
    return json{{"seq", seq}, {"data", data}}.dump();
}

} // namespace

TEST(GameBehaviourTest, OpeningChannelsPushesTheStartEventsAndTheCursorWhichANackResends)
{
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(vrqtest::loopbackAddress())), std::nullopt);
    EXPECT_EQ(text(served.nextBuffer("sv")), R"({"data":{"status":0},"type":"game_start_complete"})");
    EXPECT_EQ(text(served.nextBuffer("sv")), R"({"data":{"status":0},"type":"archive_load_status"})");
    EXPECT_EQ(text(served.nextBuffer("sv")), R"({"data":{"sig_key":"served-metric-key"},"type":"metric_sig_key"})");

    const json cursor = served.next("cd");
    ASSERT_TRUE(cursor.is_object());
    EXPECT_EQ(cursor["data_type"], "mouse");
    EXPECT_EQ(cursor["data_key"], "arrow-1");
    EXPECT_EQ(cursor["hotspotx_v2"], 2);
    EXPECT_EQ(cursor["hotspoty_v2"], 3);
    ASSERT_TRUE(cursor["data"].is_string());
    const auto png = vrq::base64Decode(cursor["data"].get<std::string>());
    ASSERT_TRUE(png);
    EXPECT_EQ(png->substr(0, 8), vrqtest::kPngSignature);
    const auto image = vrqtest::decodePng(*png);
    ASSERT_TRUE(image);
    EXPECT_EQ(cursor["width_v2"], image->width);
    EXPECT_EQ(cursor["height_v2"], image->height);
    EXPECT_EQ(image->alphaAt(2, 3), 255) << "the tip is at the hotspot";

    // Handled in order: had the unknown key been answered, that answer would come first.
    auto& client = served.client();
    ASSERT_TRUE(client.send("cd", R"({"type":"nack","data_type":"mouse","data_key":"hand-9"})"));
    ASSERT_TRUE(client.send("cd", R"({"type":"ack","data_type":"mouse","data_key":"arrow-1"})"));
    ASSERT_TRUE(client.send("cd", R"({"type":"nack","data_type":"mouse","data_key":"arrow-1"})"));
    EXPECT_EQ(served.next("cd"), cursor);
    EXPECT_EQ(served.behaviour()->cursorAcks(), 1u);
    EXPECT_EQ(served.unread("cd"), 0u);
}

TEST(GameBehaviourTest, AckMessagesAreAnsweredWithTheirSeqAndTheGameState)
{
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(vrqtest::loopbackAddress())), std::nullopt);
    auto& client = served.client();
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(served.next("sv").is_object()) << "start event " << i;
    const auto ack = [&](int seq, const json& data) {
        EXPECT_TRUE(client.send("ack", json{{"seq", seq}, {"data", data}}.dump()));
        return text(served.nextBuffer("ack"));
    };

    EXPECT_EQ(ack(1, {{"type", "capslock_state"}}), ackReply(1, {{"type", "capslock_state"}, {"state", "lower"}}));
    // Channels are independent streams: the key is handled before the question only once the scene shows it.
    ASSERT_TRUE(client.send("km", R"({"type":"keyboard","key":20,"down":true})"));
    ASSERT_TRUE(client.send("km", R"({"type":"keyboard","key":20,"down":false})"));
    ASSERT_TRUE(waitUntil([&] { return served.session()->sceneText() == "keyboard 20 up"; }));
    EXPECT_EQ(ack(2, {{"type", "capslock_state"}}), ackReply(2, {{"type", "capslock_state"}, {"state", "upper"}}));
    EXPECT_EQ(ack(3, {{"type", "paste"}, {"content", "hello"}}), ackReply(3, {{"type", "paste"}, {"code", 0}}));

    // None of these expects a reply, so the next reply is the cursor state's.
    const json resMode = {{"type", "res_mode"}, {"min_bitrate", 1000}, {"max_bitrate", 8000}, {"fps", 60}, {"unit", "kbps"}};
    for (const json& quiet : {json{{"type", "mouseleft"}, {"down", false}}, json{{"type", "keys_clean"}},
                              json{{"type", "wnd_pos"}, {"x", 1}, {"y", 2}}, json{{"type", "cancel_auto_login"}},
                              json{{"type", "game_op"}, {"op", "pause"}}, resMode, json{{"type", "set_cursor"}, {"show", 0}}})
        ASSERT_TRUE(client.send("ack", json{{"seq", 10}, {"data", quiet}}.dump()));
    EXPECT_EQ(ack(20, {{"type", "cursor_state"}}), ackReply(20, {{"type", "cursor_state"}, {"state", "hidden"}}));
    EXPECT_EQ(ack(21, {{"type", "mouseleft"}, {"down", true}}),
              ackReply(21, {{"type", "mouseleft"}, {"status", "enabled"}, {"hit_input", true}, {"enable_auto_login", false}}));
    EXPECT_EQ(served.behaviour()->lastAck("res_mode"), resMode);
    EXPECT_EQ(served.behaviour()->lastAck("game_op")["op"], "pause");

    // Only a login with both a name and a password succeeds, and only that one is announced on "sv".
    EXPECT_EQ(ack(30, {{"type", "auto_login"}, {"user_name", "player"}, {"psw", ""}, {"timeout", 10}}),
              ackReply(30, {{"type", "auto_login"}, {"result", 3}}));
    EXPECT_EQ(ack(31, {{"type", "auto_login"}, {"user_name", "player"}, {"psw", "secret"}, {"timeout", 10}}),
              ackReply(31, {{"type", "auto_login"}, {"result", 0}}));
    EXPECT_EQ(text(served.nextBuffer("sv")),
              json({{"type", "auto_login"}, {"data", {{"status", 0}, {"user_id", "vrq-player"}, {"game_id", "vrq-reference-game"}}}}).dump());
    EXPECT_EQ(served.unread("ack"), 0u);
}

TEST(GameBehaviourTest, UdpTransRelaysAChannelToAUdpPortAndBackUntilTheSessionEnds)
{
    const std::string host = vrqtest::loopbackAddress();
    vrqtest::ServedClient served({"custom_trans_1"});
    ASSERT_EQ(served.start(vrqtest::referenceOptions(host)), std::nullopt);
    UdpEcho echo(host);
    ASSERT_GT(echo.port(), 0);

    const auto udpTrans = [&](int seq, const json& port, const std::string& label) {
        EXPECT_TRUE(served.client().send("ack", ackReply(seq, {{"type", "udp_trans"}, {"dest_port", port}, {"label", label}})));
        return text(served.nextBuffer("ack"));
    };
    const auto refused = [](int seq, const std::string& label) {
        return ackReply(seq, {{"type", "udp_trans"}, {"label", label}, {"code", 1}});
    };
    EXPECT_EQ(udpTrans(1, 0, "custom_trans_1"), refused(1, "custom_trans_1"));
    EXPECT_EQ(udpTrans(2, 70000, "custom_trans_1"), refused(2, "custom_trans_1"));
    EXPECT_EQ(udpTrans(3, "9000", "custom_trans_1"), refused(3, "custom_trans_1"));
    EXPECT_EQ(udpTrans(4, echo.port(), "custom_trans_9"), refused(4, "custom_trans_9")) << "no such channel";
    EXPECT_EQ(udpTrans(6, echo.port(), "km"), refused(6, "km")) << "the game's own channel";
    EXPECT_EQ(udpTrans(5, echo.port(), "custom_trans_1"),
              ackReply(5, {{"type", "udp_trans"}, {"label", "custom_trans_1"}, {"code", 0}}));

    const std::string binary("\0\1\2\3", 4);
    ASSERT_TRUE(served.client().send("custom_trans_1", "ping"));
    ASSERT_TRUE(served.client().send("custom_trans_1", binary, true));
    const auto first = served.nextBuffer("custom_trans_1");
    const auto second = served.nextBuffer("custom_trans_1");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(echo.received(), (std::vector<std::string>{"ping", binary}));
    EXPECT_EQ(first->data, "ping");
    EXPECT_TRUE(first->isBinary);
    EXPECT_EQ(second->data, binary);

    const auto port = served.behaviour()->relayPort("custom_trans_1");
    ASSERT_TRUE(port);
    EXPECT_FALSE(canBindUdp(host, *port)) << "the relay holds its port";
    ASSERT_TRUE(served.server().faults().dropPeer());
    EXPECT_TRUE(waitUntil([&] { return canBindUdp(host, *port); }, 5s)) << "the relay ended with the session";
}

TEST(GameBehaviourTest, InputReachesTheObserverAtOnceAndShowsOnTheScene)
{
    auto options = vrqtest::referenceOptions(vrqtest::loopbackAddress());
    options.game.video.pattern = "white"; // the overlay's dark box stands out
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(options), std::nullopt);
    auto& client = served.client();

    std::mutex mutex;
    std::vector<std::pair<std::string, std::chrono::steady_clock::time_point>> observed;
    served.server().setInputObserver([&](const vrqserver::ChannelMessage& message, std::chrono::steady_clock::time_point arrival) {
        std::lock_guard lock(mutex);
        observed.emplace_back(message.bytes, arrival);
    });
    const auto observedCount = [&] {
        std::lock_guard lock(mutex);
        return observed.size();
    };
    // Dark pixels where the overlay's box goes (320x240: one font pixel per pixel, box from (8, 8)).
    const auto darkPixelsInBox = [&] {
        const auto frame = client.frames().last();
        int dark = 0;
        for (int y = 10; frame && y < 18; ++y)
            for (int x = 10; x < 60; ++x)
                dark += frame->plane(0).data[y * frame->plane(0).stride + x] < 64 ? 1 : 0;
        return dark;
    };
    ASSERT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));
    EXPECT_EQ(darkPixelsInBox(), 0) << "no overlay before any input";

    const auto sentAt = std::chrono::steady_clock::now();
    const std::string key = R"({"type":"keyboard","key":65,"down":true})";
    ASSERT_TRUE(client.send("ack", ackReply(1, {{"type", "keys_clean"}})));
    ASSERT_TRUE(client.send("km", key));
    ASSERT_TRUE(waitUntil([&] { return observedCount() >= 1; }));
    {
        std::lock_guard lock(mutex);
        ASSERT_EQ(observed.size(), 1u) << "only \"km\" is observed";
        EXPECT_EQ(observed[0].first, key);
        EXPECT_GE(observed[0].second, sentAt);
        EXPECT_LE(observed[0].second, std::chrono::steady_clock::now());
    }
    EXPECT_TRUE(waitUntil([&] { return served.session()->sceneText() == "keyboard 65 down"; }));
    EXPECT_TRUE(waitUntil([&] { return darkPixelsInBox() > 100; })) << "the overlay shows on the decoded video";

    ASSERT_TRUE(client.send("km", R"({"type":"mousemove_v2","x":4096.5,"y":100})"));
    EXPECT_TRUE(waitUntil([&] { return served.session()->sceneText() == "mouse 4096,100"; }));
    ASSERT_TRUE(client.send("km", R"({"type":"axisleft","x":16383,"y":-32767})"));
    EXPECT_TRUE(waitUntil([&] { return served.session()->sceneText() == "axisleft 16383,-32767"; }));
    EXPECT_EQ(observedCount(), 3u);
}

TEST(GameBehaviourTest, TouchesAndTheMouseAreDrawnOnTheSceneAndReadOnTheControlRoute)
{
    auto options = vrqtest::referenceOptions(vrqtest::loopbackAddress());
    options.game.video.pattern = "black"; // the finger's bright dot stands out
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(options), std::nullopt);
    auto& client = served.client();
    const auto pointer = [&] {
        httplib::Client http(served.server().origin());
        http.set_read_timeout(10, 0);
        const auto response = http.Get("/control/pointer");
        return response && response->status == 200 ? json::parse(response->body, nullptr, false) : json();
    };
    // Luma at the middle of the picture (320x240), where the finger goes.
    const auto middleLuma = [&] {
        const auto frame = client.frames().last();
        return frame ? static_cast<int>(frame->plane(0).data[120 * frame->plane(0).stride + 160]) : 0;
    };
    ASSERT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));
    EXPECT_LT(middleLuma(), 64) << "a black scene before any touch";
    EXPECT_EQ(pointer(), json::parse(R"({"fingers":[],"pointer":null,"buttons":{"left":false,"right":false,"middle":false}})"));

    ASSERT_TRUE(client.send("km", R"({"type":"event_touch","touch_id":0,"finger_id":1,"event_type":0,"x":187.5,"y":150,)"
                                  R"("width":375,"height":300,"pressure":1,"timestamp":1})"));
    ASSERT_TRUE(client.send("km", R"({"type":"mousemove_v2","x":2048,"y":6144})"));
    ASSERT_TRUE(client.send("km", R"({"type":"mouseright","down":true})"));
    ASSERT_TRUE(client.send("ack", ackReply(1, {{"type", "mouseleft"}, {"down", true}})));
    const json expected = json::parse(R"({"fingers":[{"id":1,"x":0.5,"y":0.5}],"pointer":{"x":0.25,"y":0.75},)"
                                      R"("buttons":{"left":true,"right":true,"middle":false}})");
    EXPECT_TRUE(waitUntil([&] { return pointer() == expected; })) << pointer().dump();
    EXPECT_TRUE(waitUntil([&] { return middleLuma() > 150; })) << "the finger shows on the decoded video";

    ASSERT_TRUE(client.send("km", R"({"type":"event_touch","touch_id":0,"finger_id":1,"event_type":2,"x":187.5,"y":150,)"
                                  R"("width":375,"height":300,"pressure":1,"timestamp":2})"));
    EXPECT_TRUE(waitUntil([&] { return served.session()->pointerState().fingers.empty(); }));
    EXPECT_EQ(pointer()["fingers"], json::array());
}

TEST(GameBehaviourTest, AKeySequenceIsPerformedTextByTextAsIfEachCameAloneAndReadOnTheControlRoute)
{
    auto options = vrqtest::referenceOptions(vrqtest::loopbackAddress());
    options.game.video.pattern = "black";
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(options), std::nullopt);
    auto& client = served.client();
    const auto gamepad = [&] {
        httplib::Client http(served.server().origin());
        http.set_read_timeout(10, 0);
        const auto response = http.Get("/control/gamepad");
        return response && response->status == 200 ? json::parse(response->body, nullptr, false) : json();
    };
    // Luma in the middle of the right trigger's bar (320x240: units of 4 pixels, the pad's box from (8, 168)).
    const auto rightTriggerLuma = [&] {
        const auto frame = client.frames().last();
        return frame ? static_cast<int>(frame->plane(0).data[176 * frame->plane(0).stride + 8 + 24 * 4]) : 0;
    };
    ASSERT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));
    EXPECT_EQ(gamepad()["connected"], false);
    EXPECT_LT(rightTriggerLuma(), 64) << "no pad before any gamepad input";

    const json keys = {
        R"({"type": "keyboard","down": true,"key": 27)",
        R"({"type": "keyboard","down": true,"key": 20})",
        R"({"type": "gamepadkey","down": true,"key": 4096})",
        R"({"type":"axisleft","x":16383,"y":-32767})",
        R"({"type":"rt","x":255,"down":1})",
        R"({"type": "mouseright","down": true})",
        R"({"type": "mousescroll","delta": -1})",
        "not json",
        7,
        R"({"type": "keyboard","down": false,"key": 20})",
    };
    ASSERT_TRUE(client.send("km", json{{"type", "key_seq"}, {"keys", keys}}.dump()));
    json expected = {{"connected", true}, {"buttons", 4096}, {"left_stick", {{"x", 16383}, {"y", -32767}}},
                     {"right_stick", {{"x", 0}, {"y", 0}}}, {"left_trigger", 0}, {"right_trigger", 255},
                     {"keys_held", {27}}, {"sequences", 1}, {"instructions", 10}, {"repaired", 1}, {"rejected", 2}};
    expected["instruction_log"] = keys;
    expected["instruction_log"][8] = "7";
    EXPECT_TRUE(waitUntil([&] { return gamepad() == expected; })) << gamepad().dump();
    EXPECT_EQ(served.session()->sceneText(), "keyboard 20 up") << "the last text performed";
    EXPECT_TRUE(served.behaviour()->capsLockOn()) << "toggled once, by the press inside the sequence";
    EXPECT_EQ(served.session()->pointerState().buttons, (vrqserver::PointerState::Buttons{false, true, false}));
    EXPECT_TRUE(waitUntil([&] { return rightTriggerLuma() > 180; })) << "the full trigger shows on the decoded video";

    // The same input unwrapped, on "km" and "ack", changes the same state.
    ASSERT_TRUE(client.send("km", R"({"type":"gamepadkey","down":false,"key":4096})"));
    ASSERT_TRUE(client.send("km", R"({"type":"axisright","x":-5,"y":6})"));
    ASSERT_TRUE(client.send("ack", ackReply(1, {{"type", "keys_clean"}})));
    ASSERT_TRUE(waitUntil([&] { return gamepad()["right_stick"] == json{{"x", -5}, {"y", 6}}; })) << gamepad().dump();
    EXPECT_TRUE(waitUntil([&] { return gamepad()["keys_held"] == json::array(); }));
    EXPECT_EQ(gamepad()["buttons"], 0);
    ASSERT_TRUE(client.send("km", R"({"type":"gamepaddisconnect"})"));
    EXPECT_TRUE(waitUntil([&] { return gamepad()["connected"] == false; }));
    EXPECT_EQ(gamepad()["instructions"], 10) << "only sequences are logged";
}
