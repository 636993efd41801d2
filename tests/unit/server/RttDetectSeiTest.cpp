#include "RttDetectSei.h"

#include "support/TempHome.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using nlohmann::json;
using vrqserver::RttDetectSei;

namespace {

class RttDetectSeiTest : public ::testing::Test {
protected:
    // A heartbeat as the kit builds it, but sent at sentMs rather than now.
    static json heartbeatSentAt(std::int64_t sentMs)
    {
        json heartbeat = VRQSDKMonitor::sharedInstance().createHeartbeatMessage();
        json& element = heartbeat["rtt_detect"][0];
        element["base"] = sentMs - element["s"].get<std::int64_t>();
        heartbeat["timestamp"] = sentMs;
        return heartbeat;
    }

    static json parseText(const std::string& text)
    {
        EXPECT_GT(text.size(), 3u);
        return json::parse(text.substr(3), nullptr, false);
    }

    vrqtest::TempHome home;
    RttDetectSei sei;
};

TEST_F(RttDetectSeiTest, NothingIsSentBeforeAUsableHeartbeat)
{
    EXPECT_EQ(sei.text(vrq::nowMs()), "");
    const std::int64_t now = vrq::nowMs();
    for (const json& heartbeat : {
             json::parse("not json", nullptr, false),
             json::array({1, 2}),
             json{{"timestamp", now}},
             json{{"rtt_detect", json::array()}},
             json{{"rtt_detect", "cli"}},
             json{{"rtt_detect", json::array({42})}},
             json{{"rtt_detect", {{{"id", "cli"}, {"s", 300}}}}},
             json{{"rtt_detect", {{{"base", "1700000000000"}, {"id", "cli"}, {"s", 300}}}}},
             json{{"rtt_detect", {{{"base", now}, {"id", "cli"}}}}},
         }) {
        EXPECT_FALSE(sei.onHeartbeat(heartbeat, now)) << heartbeat.dump();
        EXPECT_EQ(sei.text(now), "") << heartbeat.dump();
    }
}

TEST_F(RttDetectSeiTest, TextEchoesTheClientElementThenGivesTheServerTimesFromItsBase)
{
    const json heartbeat = VRQSDKMonitor::sharedInstance().createHeartbeatMessage();
    const std::int64_t base = heartbeat["rtt_detect"][0]["base"].get<std::int64_t>();
    ASSERT_TRUE(sei.onHeartbeat(heartbeat, base + 350));

    const std::string text = sei.text(base + 380);
    EXPECT_EQ(text.substr(0, 3), "VRQ");
    EXPECT_EQ(text[3], '{');
    EXPECT_NE(text.find("rtt_detect"), std::string::npos);
    const json reply = parseText(text);
    ASSERT_TRUE(reply.is_object()) << text;
    ASSERT_EQ(reply["rtt_detect"].size(), 2u) << text;
    EXPECT_EQ(reply["rtt_detect"][0], heartbeat["rtt_detect"][0]);
    EXPECT_EQ(reply["rtt_detect"][1], (json{{"id", "srv"}, {"r", 350}, {"s", 380}}));
}

TEST_F(RttDetectSeiTest, OnlyAUsableHeartbeatReplacesTheEchoedElement)
{
    ASSERT_TRUE(sei.onHeartbeat(heartbeatSentAt(1'000'000), 1'000'010));
    EXPECT_FALSE(sei.onHeartbeat(json{{"rtt_detect", json::array()}}, 1'000'900));
    EXPECT_EQ(parseText(sei.text(1'000'020))["rtt_detect"][1]["r"], 310);

    ASSERT_TRUE(sei.onHeartbeat(heartbeatSentAt(1'001'000), 1'001'020));
    const json reply = parseText(sei.text(1'001'050));
    EXPECT_EQ(reply["rtt_detect"][0]["base"], 1'001'000 - 300);
    EXPECT_EQ(reply["rtt_detect"][1]["r"], 320);
    EXPECT_EQ(reply["rtt_detect"][1]["s"], 350);
}

TEST_F(RttDetectSeiTest, TheKitsEvaluationGivesTheTimeSpentTravelling)
{
    // The heartbeat left the client 5 s ago and arrived here 1.5 s later; the
    // server held it for 3 s before this frame. What remains of the client's
    // round trip, 2 s plus the time this test takes, was travel.
    VRQSDKReport& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    report.setTotalTransMS(0);
    const std::int64_t start = vrq::nowMs();
    const std::int64_t sent = start - 5000;
    ASSERT_TRUE(sei.onHeartbeat(heartbeatSentAt(sent), sent + 1500));
    const std::string text = sei.text(sent + 4500);

    VRQSDKMonitor::sharedInstance().updateTotalTrans(text.substr(3));
    const std::int64_t end = vrq::nowMs();
    const auto total = static_cast<std::int32_t>(report.totalTransMS());
    EXPECT_GE(total, 2000);
    EXPECT_LE(total, 2000 + (end - start));
}

TEST_F(RttDetectSeiTest, FramesNeverSeeHalfOfAHeartbeat)
{
    // Every heartbeat arrives 7 ms after its base; a frame that mixed one
    // heartbeat's base with another's arrival would show another offset.
    std::atomic<bool> done = false;
    std::thread heartbeats([&] {
        for (std::int64_t i = 0; i < 2000; ++i) {
            json heartbeat = heartbeatSentAt(1'000'000 + i * 1000);
            const std::int64_t base = heartbeat["rtt_detect"][0]["base"].get<std::int64_t>();
            sei.onHeartbeat(heartbeat, base + 7);
        }
        done = true;
    });
    int checked = 0;
    while (!done || checked == 0) {
        const std::string text = sei.text(2'000'000'000);
        if (text.empty())
            continue;
        const json reply = parseText(text);
        ASSERT_EQ(reply["rtt_detect"][1]["r"], 7) << text;
        ++checked;
    }
    heartbeats.join();
}

} // namespace
