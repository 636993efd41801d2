#include "support/CapturingLogDelegate.h"
#include "support/LoopbackHttpServer.h"
#include "support/TempHome.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQRemoteSession.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class VRQSDKMonitorTest : public ::testing::Test {
protected:
    VRQSDKMonitor& monitor = VRQSDKMonitor::sharedInstance();
    VRQSDKReport& report = monitor.currentSDKReport();
};

TEST_F(VRQSDKMonitorTest, HeartbeatHasExactlyTheTwelveMembersWithTheirWireTypes)
{
    report.setFps(29.5f);
    report.setVideoDelay(12);
    report.setRttMS(33);
    report.setVideoBitrateKb(4000);
    report.setVideoPacketLost(2);
    report.setVideoNack(1);
    report.setVideoPacketRecv(900);
    report.setGpuUsage("47%");
    const std::int64_t before = vrq::nowMs();
    const json message = monitor.createHeartbeatMessage();

    EXPECT_EQ(message.size(), 12u);
    EXPECT_TRUE(message["timestamp"].is_number_integer());
    EXPECT_GE(message["timestamp"].get<std::int64_t>(), before);
    EXPECT_EQ(message["fps"], "29.50");
    EXPECT_EQ(message["delay"], "12");
    EXPECT_EQ(message["rtt"], 33);
    EXPECT_EQ(message["input_delay"], 33);
    EXPECT_TRUE(message["load_cost_time"].is_number_integer());
    EXPECT_EQ(message["bit_rate"], "4000");
    EXPECT_EQ(message["packet_lost"], "2");
    EXPECT_EQ(message["nack"], "1");
    EXPECT_EQ(message["packet_received"], "900");
    EXPECT_EQ(message["gpu"], "47%");
    ASSERT_EQ(message["rtt_detect"].size(), 1u);
    const json& detect = message["rtt_detect"][0];
    EXPECT_EQ(detect["id"], "cli");
    EXPECT_EQ(detect["s"], 300);
    EXPECT_NEAR(detect["base"].get<double>(), static_cast<double>(message["timestamp"].get<std::int64_t>() - 300), 50);
}

class TotalTransTest : public VRQSDKMonitorTest {
protected:
    void SetUp() override
    {
        report.setTotalTransMS(77);
        VRQLogManager::sharedManager().setLogDelegate(&log, 0);
    }
    void TearDown() override { VRQLogManager::sharedManager().setLogDelegate(nullptr, 2); }
    vrqtest::CapturingLogDelegate log;
};

TEST_F(TotalTransTest, ClientRoundTripMinusServerHoldTime)
{
    // Sent 300 ms after base, received now; the server held it from base+310 to base+350.
    const std::int64_t base = vrq::nowMs() - 400;
    const json reply = {{"rtt_detect", {{{"base", base}, {"id", "cli"}, {"s", 300}}, {{"id", "srv"}, {"r", 310}, {"s", 350}}}}};
    monitor.updateTotalTrans(reply.dump());
    const auto total = static_cast<std::int64_t>(report.totalTransMS());
    EXPECT_GE(total, 100 - 40 - 5);
    EXPECT_LE(total, 100 - 40 + 200);
}

TEST_F(TotalTransTest, MalformedRepliesLeaveTheValueAlone)
{
    const std::int64_t base = vrq::nowMs();
    for (const std::string& text : {
             std::string("not json"),
             json{{"rtt_detect", json::array()}}.dump(),
             json{{"rtt_detect", "x"}}.dump(),
             json{{"rtt_detect", {{{"base", base}, {"id", "cli"}, {"s", 300}}}}}.dump(), // no server element
             json{{"rtt_detect", {{{"base", base}, {"id", "cli"}}, {{"id", "srv"}, {"r", 1}, {"s", 2}}}}}.dump(),
         }) {
        monitor.updateTotalTrans(text);
        EXPECT_EQ(report.totalTransMS(), 77u) << text;
    }
}

TEST_F(TotalTransTest, FirstElementWithoutBaseIsLogged)
{
    monitor.updateTotalTrans(json{{"rtt_detect", {{{"id", "cli"}, {"s", 300}}, {{"id", "srv"}, {"r", 1}, {"s", 2}}}}}.dump());
    EXPECT_EQ(report.totalTransMS(), 77u);
    EXPECT_TRUE(log.contains("rttInfo has no base ts"));
}

TEST_F(TotalTransTest, MissingReceiveOffsetCountsAsTheSentinel)
{
    // A later element without "r" is taken as base - 99999, not rejected.
    const std::int64_t base = vrq::nowMs() - 300;
    monitor.updateTotalTrans(json{{"rtt_detect", {{{"base", base}, {"id", "cli"}, {"s", 300}}, {{"id", "srv"}, {"s", 0}}}}}.dump());
    const auto total = static_cast<std::int32_t>(report.totalTransMS());
    EXPECT_LT(total, -99000);
}

class MonitorSessionTest : public VRQSDKMonitorTest {
protected:
    void SetUp() override
    {
        vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);
        VRQHttpHelper::setBaseHost(server.origin());
        VRQHttpHelper::setMetricSigKey("k");
    }
    void TearDown() override
    {
        VRQHttpHelper::setMetricSigKey("");
        vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt);
    }

    std::vector<json> postedRecords()
    {
        std::vector<json> records;
        for (const auto& post : server.requestsTo("/report_metric_bulk")) {
            const json body = json::parse(post.body);
            for (const auto& record : body["bulk"])
                records.push_back(record);
        }
        return records;
    }

    vrqtest::TempHome home;
    vrqtest::LoopbackHttpServer server;
};

TEST_F(MonitorSessionTest, SessionRecordsCarryTheSessionAndTheStopFlushesThem)
{
    const json session = {{"server_ip", "127.0.0.5"}, {"region", "eu"}, {"request_id", "r9"},
                          {"user_id", "u1"},          {"game_id", "g7"}, {"app_id", 12}};
    monitor.resetWithSession(VRQRemoteSession::fromDictionary(session));
    monitor.onConnectSuccess();
    // One performance sample from the 1 s timer.
    vrq::runMainLoopUntil([] { return false; }, 1100ms);
    monitor.onStopGame(10009);
    monitor.waitForPendingReports();
    ASSERT_TRUE(server.waitForRequests("/report_metric_bulk", 1, 5s));

    const auto records = postedRecords();
    ASSERT_GE(records.size(), 4u);
    const json& start = records.front();
    EXPECT_EQ(start["network_type"], 1) << "the session record carries the status number";
    EXPECT_EQ(start["app_id"], 12);
    EXPECT_EQ(start["version"], "1.1.7.20");
    EXPECT_EQ(start["platform"], 2);
    EXPECT_TRUE(start.contains("model"));
    EXPECT_TRUE(start.contains("app_Name"));
    EXPECT_EQ(records[1]["network_type"], "WIFI");
    EXPECT_TRUE(records[1].contains("load_cost_time"));
    const auto perf = std::find_if(records.begin(), records.end(), [](const json& r) { return r.contains("fps"); });
    ASSERT_NE(perf, records.end());
    for (const char* key : {"bit_rate", "packet_lost", "packet_received", "target_delay", "googDecodeMs", "nack", "cpu",
                            "gpu", "jitter_buffer", "rtt", "raw_rtt", "freeze_count"})
        EXPECT_TRUE(perf->contains(key)) << key;
    EXPECT_EQ(records.back()["game_stop"], 4);
    for (const auto& record : records) {
        EXPECT_EQ(record["request_id"], "r9");
        EXPECT_EQ(record["device_id"], VRQSDKMonitor::vrqDeviceID());
    }
}

TEST_F(MonitorSessionTest, TotalTransIsReportedInExactlyOneSample)
{
    report.setTotalTransMS(42);
    monitor.appendPerfReportAndSend();
    monitor.appendPerfReportAndSend();
    monitor.sendReport();
    monitor.waitForPendingReports();
    ASSERT_TRUE(server.waitForRequests("/report_metric_bulk", 1, 5s));
    const auto records = postedRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["total_trans"], 42);
    EXPECT_FALSE(records[1].contains("total_trans"));
}

struct CodeCase {
    std::int64_t code;
    const char* key;
    int expected;
};

class MonitorCodeTest : public MonitorSessionTest, public ::testing::WithParamInterface<CodeCase> {};

TEST_P(MonitorCodeTest, EventCodesMapToTheirRecordValues)
{
    const CodeCase c = GetParam();
    if (std::string(c.key) == "game_stop")
        monitor.onStopGame(c.code);
    else
        monitor.onStartReconnect(c.code);
    monitor.sendReport();
    monitor.waitForPendingReports();
    ASSERT_TRUE(server.waitForRequests("/report_metric_bulk", 1, 5s));
    EXPECT_EQ(postedRecords().back()[c.key], c.expected);
}

INSTANTIATE_TEST_SUITE_P(Codes, MonitorCodeTest,
                         ::testing::Values(CodeCase{10003, "game_stop", 0}, CodeCase{10004, "game_stop", 1},
                                           CodeCase{10008, "game_stop", 2}, CodeCase{10009, "game_stop", 4},
                                           CodeCase{10005, "game_stop", 3}, CodeCase{19001, "reconnection", 0},
                                           CodeCase{10002, "reconnection", 1}, CodeCase{10020, "reconnection", 2},
                                           CodeCase{12345, "reconnection", 0}));

} // namespace
