#include "vrq/platform/engine/RtcRetransmissionLatency_p.h"

#include <gtest/gtest.h>

using vrq::rtc::RetransmissionLatency;
using namespace std::chrono_literals;

namespace {

const RetransmissionLatency::Clock::time_point t0{std::chrono::seconds(1000)};

} // namespace

TEST(RetransmissionLatencyTest, RisesToCoverTheRoundTripByAtLeastAStepOncePerIntervalUpToTheCeiling)
{
    RetransmissionLatency latency(20);
    EXPECT_EQ(latency.gaveUp(t0), std::nullopt) << "nothing is retransmitted: waiting longer would not help";

    latency.requested(7, t0);
    latency.requested(7, t0 + 15ms); // a repeated request: the round trip counts from the first
    latency.retransmitted(7, t0 + 45ms);
    latency.retransmitted(9, t0 + 46ms); // never asked for
    EXPECT_EQ(latency.roundTripMs(), 45);
    EXPECT_EQ(latency.gaveUp(t0 + 50ms), 45 + RetransmissionLatency::kMarginMs);
    EXPECT_EQ(latency.gaveUp(t0 + 200ms), std::nullopt) << "the same loss gives up several packets";

    latency.requested(8, t0 + 60ms);
    latency.retransmitted(8, t0 + 90ms);
    latency.requested(300, t0 + 400ms);
    latency.retransmitted(300, t0 + 900ms); // one slow round trip does not move the median
    EXPECT_EQ(latency.roundTripMs(), 45);
    const int covered = 45 + RetransmissionLatency::kMarginMs;
    EXPECT_EQ(latency.gaveUp(t0 + 1s), covered + RetransmissionLatency::kStepMs) << "it was not enough: a step more";
    EXPECT_EQ(latency.gaveUp(t0 + 1300ms), covered + 2 * RetransmissionLatency::kStepMs);
    EXPECT_EQ(latency.gaveUp(t0 + 1600ms), covered + 3 * RetransmissionLatency::kStepMs);
    EXPECT_EQ(latency.gaveUp(t0 + 1900ms), RetransmissionLatency::kCeilingMs);
    EXPECT_EQ(latency.gaveUp(t0 + 2200ms), std::nullopt);
    EXPECT_EQ(latency.latencyMs(), RetransmissionLatency::kCeilingMs);
}

TEST(RetransmissionLatencyTest, ReturnsToTheConfiguredLatencyAfterAQuietPeriodWithoutRequests)
{
    RetransmissionLatency latency(20);
    latency.requested(1, t0);
    latency.retransmitted(1, t0 + 40ms);
    ASSERT_EQ(latency.gaveUp(t0 + 50ms), 40 + RetransmissionLatency::kMarginMs);
    latency.requested(2, t0 + 9s);
    EXPECT_EQ(latency.elapsed(t0 + 15s), std::nullopt) << "still asking for packets 6 s ago";
    EXPECT_EQ(latency.elapsed(t0 + 9s + RetransmissionLatency::kQuietPeriod), 20);
    EXPECT_EQ(latency.elapsed(t0 + 30s), std::nullopt) << "already back";
    EXPECT_EQ(latency.gaveUp(t0 + 31s), std::nullopt) << "round trips from before the quiet period are forgotten";
}
