// The player without a server: what it makes of remote sessions and of
// whatever arrives on its channels, and its acknowledged-message bookkeeping.
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGameMessageHandler.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/UserDefaults.h"
#include "support/CapturingLogDelegate.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/TempHome.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <gtest/gtest.h>

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
        m_player = VRQGamePlayer::create(json::object(), m_delegate);
        // After creation: the player's first creation sets logging up at level 2.
        VRQGamePlayer::setLogger(&m_logs, 0);
        m_player->setArchiveDelegate(m_archive);
        m_player->videoView()->setFrame({{0, 0}, {1280, 720}});
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return m_delegate->has("init"); }, 10s));
    }

    void TearDown() override
    {
        m_player->stopGame();
        m_player.reset();
        VRQGamePlayer::setLogger(nullptr, 4);
    }

    void receive(const std::string& label, const std::string& bytes, bool binary = false)
    {
        static_cast<VRQWebRTCDataHandler&>(*m_player).onReceiveMsg({bytes, binary}, label);
    }

    // Lets posted main-thread work run.
    static void settle() { vrq::runMainLoopUntil([] { return false; }, 100ms); }

    static std::string session(const json& object) { return vrq::base64Encode(object.dump()); }

    vrqtest::TempHome m_home;
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
    const json clientSession = json::parse(*decoded);
    EXPECT_EQ(clientSession["type"], "offer");
    EXPECT_NE(clientSession["sdp"].get<std::string>().find("m=application"), std::string::npos);
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
        VRQError error{"untouched", 1, {}};
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
    EXPECT_EQ(m_player->gameStatus(), VRQGameStatusStopped);
    settle();
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
    std::int64_t seq = -1;
    // The sequence is process-wide: find ours by replying to candidates that
    // nobody else waits for (in a process of its own it is the first, 10000).
    for (std::int64_t candidate = 10000; candidate < 10100 && outcomeCount(outcomes) == 0; ++candidate) {
        receive("ack", json({{"seq", candidate}, {"data", {{"type", "paste"}, {"code", 0}}}}).dump());
        vrq::runMainLoopUntil([&] { return outcomeCount(outcomes) == 1; }, 20ms);
        if (outcomeCount(outcomes) == 1)
            seq = candidate;
    }
    ASSERT_GE(seq, 10000);
    receive("ack", json({{"seq", seq}, {"data", {{"type", "paste"}, {"again", true}}}}).dump());
    vrq::runMainLoopUntil([] { return false; }, 2500ms); // past the time-out
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
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return outcomeCount(outcomes) == 1; }, 3s));
    vrq::runMainLoopUntil([] { return false; }, 700ms);
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
