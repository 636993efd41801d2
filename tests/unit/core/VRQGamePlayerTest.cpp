// The player without a server or an engine (its RTC client is a stand-in, its
// timers run on a manual clock): what it makes of remote sessions and of
// whatever arrives on its channels, its acknowledged-message bookkeeping, and
// how its sessions end.
#include "support/CapturingLogDelegate.h"
#include "support/FakeRtcClient.h"
#include "support/ManualClock.h"
#include "support/RecordingChannelDelegate.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/TempHome.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQCustomTransChannel.h"
#include "vrq/core/VRQCustomTransChannelDelegate.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGameMessageHandler.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/UserDefaults.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <thread>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class RecordingArchiveDelegate : public VRQGameArchiveDelegate {
public:
    void onLoadStatusChanged(int status, const json& info) override { events.push_back("load:" + std::to_string(status) + info.dump()); }
    void onSaveStatusChanged(int status, const json& info) override { events.push_back("save:" + std::to_string(status) + info.dump()); }
    std::vector<std::string> events; // main thread only
};

class RecordingHandler : public VRQGameMessageHandler {
public:
    void handleMessageType(const std::string& type, const json& message) override { calls.push_back(type + message.dump()); }
    std::vector<std::string> calls; // main thread only
};

class PlayerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_player = VRQGamePlayer::create(json::object(), m_delegate, [this](const json&, VRQSdkRtcDelegate* delegate) {
            m_client = vrqtest::FakeRtcClient::create(delegate);
            return m_client;
        });
        // After creation: the player's first creation sets logging up at level 2.
        VRQGamePlayer::setLogger(&m_logs, 0);
        // The shared report may hold the frame rate another test set: the
        // frozen-video check reads it, and here no statistics refresh it.
        VRQSDKMonitor::sharedInstance().currentSDKReport().setFps(0);
        m_player->setArchiveDelegate(m_archive);
        m_client->offerSet();
        settle();
        ASSERT_TRUE(m_delegate->has("init"));
    }

    void TearDown() override
    {
        if (m_player)
            m_player->stopGame();
        m_player.reset();
        VRQGamePlayer::setLogger(nullptr, 4);
    }

    void receive(const std::string& label, const std::string& bytes, bool binary = false)
    {
        static_cast<VRQWebRTCDataHandler&>(*m_player).onReceiveMsg({bytes, binary}, label);
    }

    // Lets the main-thread work posted so far run.
    static void settle() { vrqtest::ManualClock::drainMainThread(); }

    // A new player with a new delegate, as the fixture makes them.
    void restart()
    {
        TearDown();
        m_delegate = std::make_shared<vrqtest::RecordingPlayerDelegate>();
        SetUp();
    }

    // A started session, connecting (or, with a first frame, playing).
    void start(bool firstFrame)
    {
        ASSERT_TRUE(m_player->startGameWithRemoteSession(session({{"code", 0}, {"sdp", "v=0 answer"}}), nullptr));
        if (firstFrame)
            m_client->firstFrame();
    }

    static std::string session(const json& object) { return vrq::base64Encode(object.dump()); }

    vrqtest::TempHome m_home;
    vrqtest::ManualClock m_clock;
    std::shared_ptr<vrqtest::FakeRtcClient> m_client;
    vrqtest::CapturingLogDelegate m_logs;
    std::shared_ptr<vrqtest::RecordingPlayerDelegate> m_delegate = std::make_shared<vrqtest::RecordingPlayerDelegate>();
    std::shared_ptr<RecordingArchiveDelegate> m_archive = std::make_shared<RecordingArchiveDelegate>();
    std::shared_ptr<VRQGamePlayer> m_player;
};

TEST_F(PlayerTest, InitHandsTheHostABase64ClientSession)
{
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
    const auto decoded = vrq::base64Decode(m_delegate->clientSession());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(json::parse(*decoded), m_client->getClientSession());
    EXPECT_TRUE(m_delegate->allOnMainThread());
    const auto infos = vrq::UserDefaults::standard().objectForKey("PlenkSDKInfos");
    ASSERT_TRUE(infos);
    EXPECT_EQ((*infos)["4be21f7a0d"], "1.1.7.20");
}

TEST_F(PlayerTest, RemoteSessionsThatCannotStartAreRefusedWithTheirCodes)
{
    struct Case {
        std::string text;
        std::optional<int> errorCode;
    };
    const std::vector<Case> cases = {
        {"%%%not base64%%%", std::nullopt},
        {vrq::base64Encode("not json at all"), std::nullopt},
        {vrq::base64Encode("[1,2]"), std::nullopt},
        {session({{"sdp", "v=0"}}), -1},
        {session({{"code", "0"}, {"sdp", "v=0"}}), -1},
        {session({{"code", 4031}, {"sdp", "v=0"}}), 4031},
        {session({{"code", 0}}), std::nullopt},
        {session({{"code", 0}, {"sdp", ""}}), std::nullopt},
    };
    for (const auto& testCase : cases) {
        VRQError error{"untouched", 1, {}, {}};
        EXPECT_FALSE(m_player->startGameWithRemoteSession(testCase.text, &error)) << testCase.text;
        if (testCase.errorCode) {
            EXPECT_EQ(error.domain, "VRQSDK");
            EXPECT_EQ(error.code, *testCase.errorCode);
        } else {
            EXPECT_EQ(error.domain, "untouched") << testCase.text;
        }
        EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
    }
    EXPECT_TRUE(m_logs.contains("start parse sdp answer error"));
    EXPECT_TRUE(m_logs.contains("playGameWithRemoteSdp remoteSdp.length == 0"));
    EXPECT_TRUE(m_logs.contains("start version:1.1.7.20 commit_id:"));
}

TEST_F(PlayerTest, AZeroSizedViewRefusesToPlayButTheMetricKeyIsTaken)
{
    m_player->videoView()->setFrame({{0, 0}, {0, 720}});
    EXPECT_FALSE(m_player->startGameWithRemoteSession(session({{"code", 0}, {"sdp", "v=0"}, {"metric_key", "k-1"}}), nullptr));
    EXPECT_TRUE(m_logs.contains("playGameWithRemoteSdp self.videoView.size == 0"));
    EXPECT_EQ(VRQHttpHelper::metricSigKey(), "k-1");
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
}

TEST_F(PlayerTest, StartIsRefusedAfterStopAndOffTheMainThread)
{
    m_player->stopGame();
    m_player->stopGame();
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusStopped);
    EXPECT_FALSE(m_player->startGameWithRemoteSession(session({{"code", 0}, {"sdp", "v=0"}}), nullptr));
    EXPECT_TRUE(m_logs.contains("start not inited."));

    bool threw = false;
    std::thread([&] {
        try {
            m_player->startGameWithRemoteSession("", nullptr);
        } catch (const vrq::VRQAssertionError& error) {
            threw = std::string(error.what()) == "need run on main thread.";
        }
    }).join();
    EXPECT_TRUE(threw);
}

TEST_F(PlayerTest, HeartbeatDisconnectCodesEndTheSession)
{
    receive("hb", R"({"code":3})");
    settle();
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
    EXPECT_TRUE(m_logs.contains("disconnect code:3"));

    receive("hb", R"({"code":"1","token":"t-1","timestamp":1})");
    settle();
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusStopped);
    EXPECT_EQ(m_delegate->count("failure:10004"), 1u);
    EXPECT_NE(VRQSDKMonitor::sharedInstance().currentSDKReport().token(), "t-1");
    EXPECT_TRUE(m_delegate->allOnMainThread());
}

TEST_F(PlayerTest, HeartbeatRepliesGiveTheRoundTripTime)
{
    receive("hb", json({{"token", "tok-9"}, {"timestamp", vrq::nowMs() - 40}}).dump());
    const auto& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    EXPECT_EQ(report.token(), "tok-9");
    EXPECT_GE(report.rttMS(), 40u);
    EXPECT_LT(report.rttMS(), 1000u);
}

TEST_F(PlayerTest, ServerEventsReachTheirListeners)
{
    receive("sv", R"({"type":"archive_load_status","data":{"status":2,"slot":"a"}})");
    receive("sv", R"({"type":"archive_save_status","data":{}})");
    receive("sv", R"({"type":"game_start_complete","data":{"status":1}})");
    receive("sv", R"({"type":"game_start_complete","data":{"status":0}})");
    receive("sv", R"({"type":"metric_sig_key","data":{"sig_key":"sv-key"}})");
    receive("sv", R"({"type":"metric_sig_key","data":{"sig_key":""}})");
    receive("sv", R"({"type":"screen_config_change","data":{"orientation":"portrait"}})");
    receive("sv", R"({"type":"screen_config_change","data":{"orientation":"sideways"}})");
    receive("sv", R"({"type":"screen_config_change","data":{"orientation":"landscape"}})");
    receive("sv", R"({"type":"unknown_event","data":{"status":0}})");
    settle();
    EXPECT_EQ(m_archive->events, (std::vector<std::string>{R"(load:2{"slot":"a","status":2})", "save:4{}"}));
    EXPECT_EQ(m_delegate->count("process_run"), 1u);
    EXPECT_EQ(VRQHttpHelper::metricSigKey(), "sv-key");
    EXPECT_EQ(m_delegate->count("orientation:1"), 1u);
    EXPECT_EQ(m_delegate->count("orientation:3"), 1u);
    EXPECT_EQ(m_player->videoOrientation(), 3);
}

TEST_F(PlayerTest, MalformedMessagesOnEveryLabelAreDropped)
{
    const std::vector<std::string> bad = {
        "", "not json", "[1,2,3]", "{}", "\xff\xfe\x00\x01", R"({"code":null})", R"({"type":5,"data":"x"})",
        R"({"seq":"10000","data":{"type":7}})", R"({"data_type":"mouse","data":12,"data_key":3})",
        "{\"pad\":\"" + std::string(300000, 'a') + "\"}",
    };
    for (const char* label : {"hb", "ack", "sv", "cd", "km", "custom"})
        for (const auto& bytes : bad) {
            receive(label, bytes);
            receive(label, bytes, true);
        }
    settle();
    EXPECT_EQ(m_delegate->events(), std::vector<std::string>{"init"});
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
}

TEST_F(PlayerTest, HeartbeatCodesThatAreNotNumbersAreIgnored)
{
    start(true);
    for (const char* message : {R"({"code":{}})", R"({"code":{"code":1}})", R"({"code":[1]})", R"({"code":"abc"})",
                                R"({"code":true})", R"({"code":""})"}) {
        receive("hb", message);
        settle();
        EXPECT_EQ(m_player->gameStatus(), VRQGameStatusPlaying) << message;
    }
    EXPECT_EQ(m_delegate->events(), (std::vector<std::string>{"init", "video"}));
    EXPECT_TRUE(m_logs.contains("disconnect code is not a number:{}"));
    receive("hb", R"({"code":" 2"})");
    settle();
    EXPECT_EQ(m_delegate->count("failure:10008"), 1u);
}

// Every way a session ends stops what the session armed: no reconnect and no
// time-out follows it, however long the host waits.
TEST_F(PlayerTest, NothingFollowsTheEndOfASession)
{
    struct Case {
        const char* name;
        bool firstFrame;
        std::function<void()> end;
        const char* failure;
    };
    const std::vector<Case> cases = {
        {"hb disconnect code", true, [this] { receive("hb", R"({"code":0})"); }, "failure:10003"},
        {"connect timeout", false, [] { vrqtest::ManualClock::advance(10s); }, "failure:10009"},
        {"stopGame", true, [this] { m_player->stopGame(); }, nullptr},
        {"disconnection without budget", true,
         [this] {
             m_player->pauseResumeGame(true);
             m_client->disconnected();
         },
         "failure:10002"},
    };
    for (const auto& testCase : cases) {
        if (&testCase != &cases.front())
            restart();
        start(testCase.firstFrame);
        testCase.end();
        settle();
        EXPECT_EQ(m_player->gameStatus(), VRQGameStatusStopped) << testCase.name;
        vrqtest::ManualClock::advance(30s, 500ms);
        EXPECT_EQ(m_client->count("reConnect"), 0u) << testCase.name;
        std::vector<std::string> expected = {"init"};
        if (testCase.firstFrame)
            expected.push_back("video");
        if (testCase.failure)
            expected.push_back(testCase.failure);
        EXPECT_EQ(m_delegate->events(), expected) << testCase.name;
    }
}

TEST_F(PlayerTest, NoTimeoutMeansNoTimeout)
{
    std::atomic<int> ackOutcomes{0};
    for (const double seconds : {std::numeric_limits<double>::infinity(), 1e10, 1e300}) {
        m_player->setConnectTimeout(seconds);
        m_player->sendAckMessage({{"type", "paste"}}, [&](std::optional<VRQError>, json) { ++ackOutcomes; });
    }
    start(false);
    vrqtest::ManualClock::advance(std::chrono::hours(24 * 365), std::chrono::hours(24));
    vrq::runMainLoopUntil([] { return false; }, 100ms);
    EXPECT_EQ(ackOutcomes.load(), 0);
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
    EXPECT_EQ(m_delegate->events(), std::vector<std::string>{"init"});
}

// The client drops its handlers when it closes: a session revived by the host
// must handle its channels again (heartbeat replies, ack replies, ...).
TEST_F(PlayerTest, ARevivedSessionHandlesItsChannelsAgain)
{
    for (const auto& [name, end] : std::vector<std::pair<std::string, std::function<void()>>>{
             {"stopGame", [&] { m_player->stopGame(); }},
             {"connect timeout", [&] { vrqtest::ManualClock::advance(11s); }},
         }) {
        restart();
        start(false);
        end();
        settle();
        ASSERT_EQ(m_player->gameStatus(), VRQGameStatusStopped) << name;
        m_player->pauseResumeGame(false); // revives a stopped session
        EXPECT_EQ(m_player->gameStatus(), VRQGameStatusReconnecting) << name;
        for (const char* label : {"hb", "ack", "sv", "cd", "km"})
            EXPECT_TRUE(m_client->deliver(label, "{}")) << name << ": no handler for " << label;
        m_client->deliver("hb", json({{"token", "revived-" + name}, {"timestamp", vrq::nowMs()}}).dump());
        EXPECT_EQ(VRQSDKMonitor::sharedInstance().currentSDKReport().token(), "revived-" + name);
        m_client->firstFrame();
        settle();
    }
}

// Nothing but the host holds the player: letting it go ends the session as
// stopGame does, with no reconnect afterwards.
TEST_F(PlayerTest, DroppingThePlayerEndsItsSession)
{
    start(true);
    m_player->sendAckMessage({{"type", "paste"}}, [](std::optional<VRQError>, json) {});
    std::weak_ptr<VRQGamePlayer> weak = m_player;
    m_player.reset();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(m_client->count("close"), 1u);
    vrqtest::ManualClock::advance(30s, 500ms);
    EXPECT_EQ(m_client->count("reConnect"), 0u);
    EXPECT_EQ(m_delegate->events(), (std::vector<std::string>{"init", "video"}));
}

// A host's own dictionary may hold any bytes (JSON text from the wire cannot:
// the parser refuses it). Showing it in a log line must not throw.
TEST_F(PlayerTest, TextThatIsNotUtf8NeverEndsTheProcess)
{
    const std::string bad = "\xff\xfe bad \xc3";
    EXPECT_TRUE(m_player->playGameWithRemoteSdp(
        {{"code", 0}, {"sdp", "v=0" + bad}, {"server_ip", bad}, {"screen_config", {{"orientation", bad}}}}));
    EXPECT_TRUE(m_logs.contains("playGameWithRemoteSdp:"));
    EXPECT_EQ(m_client->count("setRemoteSdp:v=0" + bad), 1u);
    EXPECT_EQ(VRQSDKMonitor::sharedInstance().currentSDKReport().serverIP(), bad);
}

TEST_F(PlayerTest, EveryFirstFrameRestoresTheReconnectBudget)
{
    start(true);
    for (int round = 1; round <= 4; ++round) {
        m_client->disconnected();
        EXPECT_EQ(m_player->gameStatus(), VRQGameStatusReconnecting) << round;
        m_client->firstFrame();
    }
    EXPECT_EQ(m_delegate->count("reconnect:10002"), 4u);
    EXPECT_EQ(m_client->count("reConnect"), 4u);
    EXPECT_TRUE(m_logs.contains("do reConnect time:2"));
    EXPECT_FALSE(m_logs.contains("do reConnect time:1"));

    // Without video in between, three attempts are all there is.
    for (int round = 1; round <= 4; ++round)
        m_client->disconnected();
    EXPECT_EQ(m_delegate->count("reconnect:10002"), 7u);
    EXPECT_EQ(m_delegate->count("failure:10002"), 1u);
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusStopped);
}

TEST_F(PlayerTest, FiveSecondsWithoutFramesReconnectUnlessPaused)
{
    start(true);
    vrqtest::ManualClock::advance(4s);
    EXPECT_FALSE(m_delegate->has("reconnect:10020"));
    vrqtest::ManualClock::advance(1s);
    EXPECT_EQ(m_delegate->count("reconnect:10020"), 1u);
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusReconnecting);

    m_client->firstFrame();
    m_player->pauseResumeGame(true);
    vrqtest::ManualClock::advance(10s);
    EXPECT_EQ(m_delegate->count("reconnect:10020"), 1u);
    EXPECT_EQ(m_client->count("send:ack:"), 1u) << "the pause went to the server";
}

TEST_F(PlayerTest, NoFirstFrameWithinTheConnectTimeoutEndsWith10009)
{
    m_player->setConnectTimeout(2.0);
    start(false);
    m_player->setConnectTimeout(60.0); // a timeout armed already keeps its delay
    vrqtest::ManualClock::advance(1900ms);
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusInited);
    vrqtest::ManualClock::advance(200ms);
    EXPECT_EQ(m_delegate->events(), (std::vector<std::string>{"init", "failure:10009"}));
    EXPECT_EQ(m_client->count("close"), 1u);
    EXPECT_TRUE(m_logs.contains("onConnectTimeout videoFrame:{{0, 0}, {1280, 720}}"));
}

// A binding reply must name the channel it binds; one that names another, or
// none, fails the binding rather than leaving the host waiting, and so does
// no reply within the time limit.
TEST_F(PlayerTest, ABindingFailsWithoutAReplyForItsOwnChannel)
{
    for (const auto& [reply, expected] : std::vector<std::pair<json, std::string>>{
             {nullptr, "failed:10021:7000"},
             {{{"type", "udp_trans"}, {"code", 0}, {"label", "custom_trans_999"}}, "failed:-3:7000"},
             {{{"type", "udp_trans"}, {"code", 0}}, "failed:-3:7000"},
             {{{"type", "udp_trans"}, {"code", 0}, {"label", "<own>"}}, "success:7000"},
         }) {
        auto delegate = std::make_shared<vrqtest::RecordingChannelDelegate>();
        auto channel = m_player->openCustomTransChannel(7000, delegate);
        ASSERT_TRUE(channel);
        vrqtest::ManualClock::advance(300ms); // the open channel asks for its binding 200 ms on
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return m_client->calls().back().rfind("send:ack:", 0) == 0; }, 5s));
        const json request = json::parse(m_client->calls().back().substr(9));
        EXPECT_EQ(request["data"]["label"], channel->channelLabel());
        if (reply.is_null()) {
            vrqtest::ManualClock::advance(10s); // the acknowledged messages' time limit
        } else {
            json data = reply;
            if (data.value("label", "") == "<own>")
                data["label"] = channel->channelLabel();
            receive("ack", json({{"seq", request["seq"]}, {"data", data}}).dump());
        }
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !delegate->events.empty(); }, 5s)) << reply;
        EXPECT_EQ(delegate->events, std::vector<std::string>{expected}) << reply;
        channel->close();
    }
}

class PlayerAckTest : public PlayerTest {
protected:
    struct Outcome {
        std::optional<VRQError> error;
        json data;
        bool onMain = false;
    };

    // Sends a request and returns where its outcome lands.
    std::shared_ptr<std::vector<Outcome>> request(const json& message)
    {
        auto outcomes = std::make_shared<std::vector<Outcome>>();
        auto mutex = m_outcomeMutex;
        m_player->sendAckMessage(message, [outcomes, mutex](std::optional<VRQError> error, json data) {
            std::lock_guard lock(*mutex);
            outcomes->push_back({std::move(error), std::move(data), vrq::isMainThread()});
        });
        return outcomes;
    }

    std::size_t outcomeCount(const std::shared_ptr<std::vector<Outcome>>& outcomes)
    {
        std::lock_guard lock(*m_outcomeMutex);
        return outcomes->size();
    }

    std::shared_ptr<std::mutex> m_outcomeMutex = std::make_shared<std::mutex>();
};

TEST_F(PlayerAckTest, AReplyIsDeliveredOnceOnTheMainThreadAndTheTimeoutFindsNothing)
{
    m_player->setConnectTimeout(2);
    auto outcomes = request({{"type", "paste"}});
    const auto sent = m_client->calls().back();
    ASSERT_EQ(sent.rfind("send:ack:", 0), 0u) << sent;
    const std::int64_t seq = json::parse(sent.substr(9))["seq"];
    receive("ack", json({{"seq", seq}, {"data", {{"type", "paste"}, {"code", 0}}}}).dump());
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return outcomeCount(outcomes) == 1; }, 5s));
    receive("ack", json({{"seq", seq}, {"data", {{"type", "paste"}, {"again", true}}}}).dump());
    vrqtest::ManualClock::advance(3s); // past the time-out
    vrq::runMainLoopUntil([] { return false; }, 100ms);
    std::lock_guard lock(*m_outcomeMutex);
    ASSERT_EQ(outcomes->size(), 1u);
    EXPECT_FALSE(outcomes->front().error);
    EXPECT_EQ(outcomes->front().data, json({{"type", "paste"}, {"code", 0}}));
    EXPECT_TRUE(outcomes->front().onMain);
}

TEST_F(PlayerAckTest, NoReplyGivesTheTimeoutErrorOnceOffTheMainThread)
{
    m_player->setConnectTimeout(0.3);
    auto outcomes = request({{"type", "capslock_state"}});
    vrqtest::ManualClock::advance(400ms);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return outcomeCount(outcomes) == 1; }, 5s));
    vrqtest::ManualClock::advance(1s); // the repeating timer would fire again by now
    vrq::runMainLoopUntil([] { return false; }, 100ms);
    std::lock_guard lock(*m_outcomeMutex);
    ASSERT_EQ(outcomes->size(), 1u);
    ASSERT_TRUE(outcomes->front().error);
    EXPECT_EQ(outcomes->front().error->domain, "VRQSDK");
    EXPECT_EQ(outcomes->front().error->code, 10021);
    EXPECT_FALSE(outcomes->front().onMain);
}

TEST_F(PlayerAckTest, HandlersAndTheControllerTakeRepliesBeforeOnceCallbacks)
{
    RecordingHandler handler, other;
    m_player->registerMessageHandler(&handler, "");
    m_player->registerMessageHandler(&handler, "paste");
    m_player->removeMessageHandler(&other, "paste");
    for (std::int64_t seq = 10000; seq < 10050; ++seq) {
        receive("ack", json({{"seq", seq}, {"data", {{"type", "paste"}, {"n", seq}}}}).dump());
        receive("ack", json({{"seq", seq}, {"data", {{"type", "mouseleft"}, {"hit_input", true}}}}).dump());
    }
    settle();
    EXPECT_EQ(handler.calls.size(), 50u);
    EXPECT_TRUE(other.calls.empty());

    m_player->removeMessageHandler(&handler, "paste");
    receive("ack", json({{"seq", 1}, {"data", {{"type", "paste"}}}}).dump());
    settle();
    EXPECT_EQ(handler.calls.size(), 50u);
    EXPECT_TRUE(m_logs.contains("click text field: 0"));
}

} // namespace
