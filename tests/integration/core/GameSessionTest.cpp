// A whole play session against the reference back end: lifecycle, the
// server's orders and events, and the signed uploads it leaves behind.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/services/HttpTransport.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class RecordingArchive : public VRQGameArchiveDelegate {
public:
    void onLoadStatusChanged(int status, const json&) override { events.push_back("load:" + std::to_string(status)); }
    void onSaveStatusChanged(int status, const json&) override { events.push_back("save:" + std::to_string(status)); }
    std::vector<std::string> events;
};

class RecordingController : public VRQGameControllerDelegate {
public:
    void onRemoteInputStatus(bool enabled) override { events.push_back("input:" + std::to_string(enabled)); }
    void onAutoLoginFinish(std::int32_t status) override { events.push_back("login:" + std::to_string(status)); }
    std::vector<std::string> events;
};

TEST(GameSessionTest, LifecycleGoesThroughItsStatusesWithTheDelegateCallsOnTheMainThread)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusNone);
    ASSERT_TRUE(session.waitForEvent("init"));
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusInited);

    VRQError error;
    ASSERT_TRUE(session.player->startGameWithRemoteSession(session.remoteSession(), &error));
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusInited);
    ASSERT_TRUE(session.waitForEvent("video"));
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
    ASSERT_TRUE(session.waitFor([&] { return session.delegate->has("process_run"); }));
    EXPECT_TRUE(session.delegate->has("size:640x360"));
    EXPECT_TRUE(session.delegate->has("orientation:3")); // the remote session's screen configuration
    EXPECT_EQ(session.player->videoOrientation(), 3);
    EXPECT_EQ(session.player->currentStatisReport()["ServerIP"], vrqtest::loopbackAddress());

    session.player->stopGame();
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusStopped);
    session.settle(300ms);
    const auto events = session.delegate->events();
    EXPECT_EQ(events.front(), "init");
    EXPECT_EQ(session.delegate->count("video"), 1u);
    for (const auto& event : events)
        EXPECT_EQ(event.find("failure"), std::string::npos) << event;
    EXPECT_TRUE(session.delegate->allOnMainThread());
    EXPECT_TRUE(session.logs.contains("stopGame"));
    EXPECT_TRUE(session.logs.contains("start video decoder:" + vrq::rtc::videoDecoderName()));
}

TEST(GameSessionTest, HeartbeatDisconnectCodesEndTheSessionWithTheirFailures)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    auto& faults = session.server->faults();
    ASSERT_TRUE(faults.sendDisconnectCode(3));
    ASSERT_TRUE(session.waitFor([&] { return session.logs.contains("disconnect code:3"); }));
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);

    const std::vector<std::pair<json, std::string>> codes = {
        {0, "failure:10003"}, {1, "failure:10004"}, {2, "failure:10008"}, {"2", "failure:10008"}};
    std::map<std::string, std::size_t> seen;
    for (const auto& [code, failure] : codes) {
        ASSERT_TRUE(faults.sendDisconnectCode(code));
        EXPECT_TRUE(session.waitForEvent(failure, ++seen[failure], 5s)) << code;
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusStopped);
    }
}

TEST(GameSessionTest, EveryServerEventReachesItsListener)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    auto archive = std::make_shared<RecordingArchive>();
    auto controller = std::make_shared<RecordingController>();
    session.player->setArchiveDelegate(archive);
    session.player->gameController()->setControlDelegate(controller);
    ASSERT_TRUE(session.play());
    auto& faults = session.server->faults();
    // The server announced itself on "sv" as the channel opened.
    EXPECT_TRUE(session.waitFor([&] { return archive->events.size() == 1; }));
    EXPECT_EQ(VRQHttpHelper::metricSigKey(), "vrq-reference-metric-key");

    faults.sendServerEvent("archive_save_status", {{"status", 1}});
    faults.sendServerEvent("metric_sig_key", {{"sig_key", "rotated-key"}});
    faults.sendServerEvent("screen_config_change", {{"orientation", "portrait"}});
    faults.sendServerEvent("auto_login", {{"status", 0}, {"user_id", "u"}, {"game_id", "g"}});
    faults.sendServerEvent("client_input_status_changed", {{"status", "enabled"}});
    faults.sendServerEvent("no_such_event", {{"status", 0}});
    // Messages are handled on a concurrent queue: they may land in any order.
    ASSERT_TRUE(session.waitFor([&] {
        return controller->events.size() == 2 && archive->events.size() == 2 && session.delegate->has("orientation:1")
               && VRQHttpHelper::metricSigKey() == "rotated-key";
    }));
    std::sort(controller->events.begin(), controller->events.end());
    std::sort(archive->events.begin(), archive->events.end());
    EXPECT_EQ(archive->events, (std::vector<std::string>{"load:0", "save:1"}));
    EXPECT_EQ(controller->events, (std::vector<std::string>{"input:1", "login:0"}));
    EXPECT_EQ(VRQHttpHelper::metricSigKey(), "rotated-key");
    EXPECT_EQ(session.player->videoOrientation(), 1);
}

TEST(GameSessionTest, MetricsAndLogsOfARealSessionArriveSigned)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    // The first heartbeat reply: the heartbeat also paces the performance samples.
    ASSERT_TRUE(session.waitFor([] { return !VRQSDKMonitor::sharedInstance().currentSDKReport().token().empty(); }));
    session.player->stopGame();
    VRQSDKMonitor::sharedInstance().waitForPendingReports();
    vrqFlushLog();
    auto& ingest = session.server->ingest();
    ASSERT_TRUE(session.waitFor([&] {
        return ingest.recordCount("/report_metric_bulk") > 0 && ingest.recordCount("/report_log_bulk") > 0
               && vrq::HttpTransport::shared().pendingCount() == 0;
    }));
    EXPECT_EQ(ingest.rejectedCount(), 0u);
    bool sawStop = false;
    for (const auto& bulk : ingest.bulks()) {
        EXPECT_TRUE(bulk.signatureValid) << bulk.path;
        sawStop = sawStop || bulk.body.dump().find("game_stop") != std::string::npos;
    }
    EXPECT_TRUE(sawStop);
}

} // namespace
