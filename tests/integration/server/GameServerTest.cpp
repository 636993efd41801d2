// The reference game server on loopback, in-process and as its binary, played
// by an offerer that behaves like the kit.
#include "support/ChildProcess.h"
#include "KitOfferer.h"
#include "support/LoopbackAddress.h"

#include "GameServer.h"
#include "HttpEndpoint.h"
#include "SessionBackend.h"

#include "support/TempHome.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/Crypto.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <future>
#include <regex>

using nlohmann::json;
using vrqtest::rtc::waitUntil;
using namespace std::chrono_literals;

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

vrqserver::GameServer::Options serverOptions()
{
    vrqserver::GameServer::Options options;
    options.token = "session-token";
    options.video.width = kWidth;
    options.video.height = kHeight;
    options.video.bitrateKbps = 500;
    return options;
}

// The answer for an offer, or an explanation.
std::pair<std::string, std::string> answerFrom(vrqserver::GameServer& server, const std::string& offer)
{
    auto answered = std::make_shared<std::promise<std::pair<std::string, std::string>>>();
    auto future = answered->get_future();
    server.acceptOffer(offer, [answered](std::optional<std::string> sdp, std::optional<vrq::rtc::Error> error) {
        answered->set_value({sdp.value_or(""), error ? error->toString() : ""});
    });
    if (future.wait_for(20s) != std::future_status::ready)
        return {"", "no answer in time"};
    return future.get();
}

json decodedRemoteSession(const std::string& text)
{
    const auto bytes = vrq::base64Decode(text);
    return bytes ? json::parse(*bytes, nullptr, false) : json();
}

bool isReplyTo(const vrq::rtc::DataBuffer& reply, const json& heartbeat, const std::string& token)
{
    const json parsed = json::parse(reply.data, nullptr, false);
    return parsed == json{{"timestamp", heartbeat["timestamp"]}, {"token", token}};
}

} // namespace

// One server and one connected session for the whole suite.
class GameServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_home = new vrqtest::TempHome;
        s_server = vrqserver::GameServer::start(serverOptions()).release();
        s_client = new vrqtest::KitOfferer;
        s_failure = connect();
        // Before any test sends a heartbeat: how much detection SEI came with the first frames.
        if (s_failure.empty() && waitUntil([] { return s_client->frames().count() >= 15; }))
            s_detectionSeiBeforeHeartbeat = s_client->rttDetectSei().size();
    }

    static std::string connect()
    {
        if (!s_server)
            return "the game server did not start";
        if (auto failed = s_client->createOffer())
            return *failed;
        const auto [answer, error] = answerFrom(*s_server, s_client->offerSdp());
        if (answer.empty())
            return "no answer: " + error;
        return s_client->applyAnswer(answer).value_or("");
    }

    static void TearDownTestSuite()
    {
        delete s_client;
        delete s_server;
        delete s_home;
    }

    void SetUp() override { ASSERT_EQ(s_failure, "") << "the session did not connect"; }

    static std::shared_ptr<vrqserver::GameSession> session() { return s_server->latestSession(); }

    static json kitHeartbeat() { return VRQSDKMonitor::sharedInstance().createHeartbeatMessage(); }

    static vrqtest::TempHome* s_home;
    static vrqserver::GameServer* s_server;
    static vrqtest::KitOfferer* s_client;
    static std::string s_failure;
    static std::optional<std::size_t> s_detectionSeiBeforeHeartbeat;
};

vrqtest::TempHome* GameServerTest::s_home = nullptr;
vrqserver::GameServer* GameServerTest::s_server = nullptr;
vrqtest::KitOfferer* GameServerTest::s_client = nullptr;
std::string GameServerTest::s_failure;
std::optional<std::size_t> GameServerTest::s_detectionSeiBeforeHeartbeat;

TEST_F(GameServerTest, TheSceneDecodesAtItsSizeAndNoDetectionSeiPrecedesAHeartbeat)
{
    ASSERT_TRUE(s_detectionSeiBeforeHeartbeat) << "no video";
    EXPECT_EQ(*s_detectionSeiBeforeHeartbeat, 0u);
    const auto frame = s_client->frames().last();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), kWidth);
    EXPECT_EQ(frame->height(), kHeight);
    EXPECT_EQ(s_client->events().tracks(), std::make_pair(1, 1)) << "video and audio";
}

TEST_F(GameServerTest, HeartbeatIsAnsweredWithTheTokenAndItsOwnTimestamp)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const std::size_t before = s_client->received("hb").size();
    const json heartbeat = kitHeartbeat();
    ASSERT_TRUE(s_client->send("hb", heartbeat.dump()));
    ASSERT_TRUE(waitUntil([&] { return s_client->received("hb").size() > before; }));
    const auto reply = s_client->received("hb")[before];
    EXPECT_FALSE(reply.isBinary);
    EXPECT_TRUE(isReplyTo(reply, heartbeat, "session-token")) << reply.data;
}

TEST_F(GameServerTest, DetectionSeiEchoesTheHeartbeatAndYieldsTheTravelTime)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const json heartbeat = kitHeartbeat();
    const json& element = heartbeat["rtt_detect"][0];
    const std::int64_t sentAt = element["base"].get<std::int64_t>() + element["s"].get<std::int64_t>();
    ASSERT_TRUE(s_client->send("hb", heartbeat.dump()));

    std::string text;
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& sei : s_client->rttDetectSei()) {
            const json reply = json::parse(sei.substr(3), nullptr, false);
            if (reply.is_object() && reply["rtt_detect"][0] == element)
                text = sei;
        }
        return !text.empty();
    }));
    EXPECT_EQ(text.substr(0, 4), "VRQ{");
    const json detect = json::parse(text.substr(3))["rtt_detect"];
    ASSERT_EQ(detect.size(), 2u);
    EXPECT_EQ(detect[1]["id"], "srv");
    EXPECT_LE(detect[1]["r"].get<std::int64_t>(), detect[1]["s"].get<std::int64_t>()) << "received before sent";

    // One clock on both sides: the travel time is at least nothing and at most the whole round trip.
    VRQSDKReport& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    report.setTotalTransMS(999'999);
    VRQSDKMonitor::sharedInstance().updateTotalTrans(text.substr(3));
    const std::int64_t roundTrip = vrq::nowMs() - sentAt;
    const auto total = static_cast<std::int32_t>(report.totalTransMS());
    EXPECT_GE(total, 0);
    EXPECT_LE(total, roundTrip);
}

TEST_F(GameServerTest, EveryMessageIsRecordedAndOnlyWellFormedHeartbeatsAreAnswered)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const auto log = session()->messageLog().messages();
    const std::size_t recorded = log.size();
    const std::size_t replies = s_client->received("hb").size();
    const std::int64_t start = vrq::nowMs();
    const json heartbeat = kitHeartbeat();
    const std::vector<std::tuple<std::string, std::string, bool>> sent = {
        {"km", R"({"type":"keyboard","key":65,"down":true})", false},
        {"km", std::string("\0\1\2binary", 9), true},
        {"ack", R"({"seq":10000,"data":{"type":"paste","text":"x"}})", false},
        {"sv", "{}", false},
        {"cd", R"({"data_type":"mouse"})", false},
        {"hb", "{not json", false},
        {"hb", R"({"token":"no timestamp"})", false},
        {"hb", heartbeat.dump(), true},
        {"hb", heartbeat.dump(), false},
    };
    for (const auto& [label, bytes, binary] : sent)
        ASSERT_TRUE(s_client->send(label, bytes, binary)) << label;

    ASSERT_TRUE(session()->messageLog().waitUntil(
        [&](const auto& messages) { return messages.size() >= recorded + sent.size(); }, 20s));
    const auto messages = session()->messageLog().messages();
    for (const auto& [label, bytes, binary] : sent) {
        const auto match = std::find_if(messages.begin() + static_cast<std::ptrdiff_t>(recorded), messages.end(), [&](const auto& message) {
            return message.label == label && message.bytes == bytes && message.isBinary == binary;
        });
        ASSERT_NE(match, messages.end()) << label << " " << bytes;
        EXPECT_GE(match->arrivalMs, start);
        EXPECT_LE(match->arrivalMs, vrq::nowMs());
    }

    // Replies go out in arrival order, so the malformed heartbeats, had they
    // been answered, would be answered before the well-formed ones.
    ASSERT_TRUE(waitUntil([&] { return s_client->received("hb").size() >= replies + 2; }));
    const auto received = s_client->received("hb");
    EXPECT_TRUE(isReplyTo(received[replies], heartbeat, "session-token")) << received[replies].data;
    EXPECT_TRUE(isReplyTo(received[replies + 1], heartbeat, "session-token")) << received[replies + 1].data;
}

TEST(GameServerIdleTest, ASessionThatHearsNoHeartbeatIsClosed)
{
    auto options = serverOptions();
    options.heartbeatTimeout = 300ms;
    auto server = vrqserver::GameServer::start(options);
    ASSERT_TRUE(server);
    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);
    const auto [answer, error] = answerFrom(*server, client.offerSdp());
    ASSERT_FALSE(answer.empty()) << error;
    ASSERT_EQ(client.applyAnswer(answer), std::nullopt);
    const auto session = server->latestSession();
    EXPECT_TRUE(waitUntil([&] { return session->isClosed(); }, 20s));
    EXPECT_FALSE(session->send("hb", "{}"));
    client.close();
}

TEST(GameServerBackEndTest, SessionPostGivesARemoteSessionThatPlays)
{
    vrqtest::TempHome home;
    auto server = vrqserver::GameServer::start(serverOptions());
    ASSERT_TRUE(server);
    vrqserver::HttpEndpoint endpoint("127.0.0.1", 0);
    vrqserver::RemoteSessionFields fields;
    fields.metricKey = "metric-key";
    vrqserver::SessionBackend backend(*server, fields);
    backend.install(endpoint.server());
    ASSERT_TRUE(endpoint.start());

    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);
    httplib::Client http(endpoint.origin());
    http.set_read_timeout(30, 0);
    const auto refused = http.Post("/session", "bm90IGEgc2Vzc2lvbg==", "text/plain");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 400);
    const auto response = http.Post("/session", client.clientSession(), "text/plain");
    ASSERT_TRUE(response);
    ASSERT_EQ(response->status, 200) << response->body;

    const json remote = decodedRemoteSession(response->body);
    ASSERT_TRUE(remote.is_object()) << response->body;
    EXPECT_EQ(remote["code"], 0);
    EXPECT_EQ(remote["metric_key"], "metric-key");
    EXPECT_EQ(remote["server_ip"], "127.0.0.1");
    EXPECT_EQ(remote["region"], "loopback");
    EXPECT_EQ(backend.sessionsServed(), 1u);
    ASSERT_TRUE(remote["sdp"].is_string());
    ASSERT_EQ(client.applyAnswer(remote["sdp"]), std::nullopt);
    EXPECT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));
    client.close();
    endpoint.stop();
    server->stop();
}

TEST(GameServerBinaryTest, ServesASessionAndStopsOnSigterm)
{
    const auto binary = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "server" / "vrq-game-server";
    ASSERT_TRUE(std::filesystem::exists(binary)) << binary;
    // A host of its own: the binary also holds the reconnect port 7392 there.
    vrqtest::ChildProcess server({binary.string(), "--host", vrqtest::loopbackAddress(), "--port", "0", "--width", "320", "--height",
                                  "240", "--fps", "30", "--metric-key", "binary-key"});
    ASSERT_TRUE(server.started());
    const std::string origin = server.waitForMatch(std::regex("at (http://127\\.0\\.0\\.[0-9]+:[0-9]+)"), 20s);
    ASSERT_FALSE(origin.empty()) << "the server never said where it listens";

    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);
    httplib::Client http(origin);
    http.set_read_timeout(30, 0);
    const auto response = http.Post("/session", client.clientSession(), "text/plain");
    ASSERT_TRUE(response);
    ASSERT_EQ(response->status, 200) << response->body;
    const json remote = decodedRemoteSession(response->body);
    EXPECT_EQ(remote["metric_key"], "binary-key");
    ASSERT_EQ(client.applyAnswer(remote["sdp"].get<std::string>()), std::nullopt);
    EXPECT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));
    client.close();

    server.kill(SIGTERM);
    const auto status = server.waitForExit(20s);
    ASSERT_TRUE(status) << "still running after SIGTERM";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
    ASSERT_TRUE(waitUntil([&] { return server.outputEnded(); }, 10s));
    EXPECT_NE(server.lines().back().find("sessions served: 1;"), std::string::npos) << server.lines().back();
}
