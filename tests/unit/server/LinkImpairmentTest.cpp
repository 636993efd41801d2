#include "LinkImpairment.h"

#include <gtest/gtest.h>

#include <vector>

using vrqserver::LinkConditions;
using vrqserver::LinkImpairment;
using namespace std::chrono_literals;

namespace {

std::vector<std::optional<std::chrono::microseconds>> fates(LinkImpairment& link, int packets)
{
    std::vector<std::optional<std::chrono::microseconds>> result;
    for (int i = 0; i < packets; ++i)
        result.push_back(link.decide({false, i % 5 == 4}));
    return result;
}

} // namespace

TEST(LinkImpairmentTest, LosesTheShareAskedAndDelaysWithinTheJitterTheSameWayForTheSameSeed)
{
    const LinkConditions conditions{0.05, 30ms, 10ms, 42};
    LinkImpairment first, second, reseeded;
    first.setConditions(conditions);
    second.setConditions(conditions);
    reseeded.setConditions({0.05, 30ms, 10ms, 43});
    const auto fate = fates(first, 20000);
    EXPECT_EQ(fate, fates(second, 20000));
    EXPECT_NE(fate, fates(reseeded, 20000));

    int lost = 0;
    std::chrono::microseconds shortestUs = 1h, longestUs{0};
    for (const auto& hold : fate) {
        if (!hold) {
            ++lost;
            continue;
        }
        shortestUs = std::min(shortestUs, *hold);
        longestUs = std::max(longestUs, *hold);
    }
    EXPECT_NEAR(lost / 20000.0, 0.05, 0.006);
    EXPECT_GE(shortestUs, 20ms);
    EXPECT_LT(shortestUs, 21ms);
    EXPECT_LE(longestUs, 40ms);
    EXPECT_GT(longestUs, 39ms);

    const auto counts = first.counts();
    EXPECT_EQ(counts.packets, 20000u);
    EXPECT_EQ(counts.frames, 4000u);
    EXPECT_EQ(counts.lost, static_cast<std::uint64_t>(lost));
}

TEST(LinkImpairmentTest, ACleanLinkPassesEverythingAtOnceAndBadConditionsAreRefused)
{
    LinkImpairment link;
    for (const auto& hold : fates(link, 1000))
        EXPECT_EQ(hold, std::chrono::microseconds(0));
    EXPECT_EQ(LinkConditions::checked(1.5, 0, 0, 1), std::nullopt);
    EXPECT_EQ(LinkConditions::checked(0.1, -1, 0, 1), std::nullopt);
    EXPECT_EQ(LinkConditions::checked(0.1, 0, LinkConditions::kMaxDelay.count() + 1, 1), std::nullopt);
    EXPECT_TRUE(LinkConditions::checked(1.0, 30, 10, 1));
}
