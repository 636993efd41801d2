#include "vrq/platform/dispatch/PendingLimit.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::size_t linesWith(const vrqtest::LogCapture& log, const std::string& fragment)
{
    std::size_t count = 0;
    for (const auto& line : log.lines())
        count += line.second.find(fragment) != std::string::npos ? 1 : 0;
    return count;
}

// A stream that floods: what exceeds the limit is dropped with one line per
// burst, and once the backlog has drained to half, one line counts the drops.
TEST(PendingLimitTest, DropsBeyondTheLimitAndSaysSoOncePerBurst)
{
    vrqtest::LogCapture log;
    vrq::PendingLimit limit("test stream", 4, 100);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(limit.tryEnter(10));
    EXPECT_FALSE(limit.tryEnter(10));
    EXPECT_FALSE(limit.tryEnter(10));
    EXPECT_EQ(limit.pending(), 4u);
    EXPECT_EQ(linesWith(log, "test stream: 4 waiting (40 bytes), the limit; dropping until they drain"), 1u);

    limit.leave(10); // three left: more than half still waits
    EXPECT_EQ(linesWith(log, "test stream: dropped"), 0u);
    limit.leave(10);
    EXPECT_EQ(linesWith(log, "test stream: dropped 2"), 1u);

    // Bytes bound too: two waiting hold 20, and 81 more would pass 100.
    EXPECT_FALSE(limit.tryEnter(81));
    EXPECT_TRUE(limit.tryEnter(80));
    EXPECT_EQ(limit.dropped(), 3u);
    EXPECT_EQ(linesWith(log, "dropping until they drain"), 2u) << "a new burst is reported again";
    {
        const vrq::PendingLimit::Leave leave(limit, 80);
    }
    EXPECT_EQ(limit.pending(), 2u);
}

} // namespace
