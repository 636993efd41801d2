#include "ChannelMessageLog.h"

#include <gtest/gtest.h>

#include <thread>

using vrqserver::ChannelMessage;
using vrqserver::ChannelMessageLog;

namespace {

TEST(ChannelMessageLogTest, AWaiterSeesMessagesAppendedFromOtherThreadsInOrder)
{
    ChannelMessageLog log;
    std::thread producer([&] {
        for (int i = 0; i < 100; ++i)
            log.append(ChannelMessage{i % 2 ? "km" : "hb", i % 3 == 0, std::to_string(i), i});
    });
    const bool seen = log.waitUntil([](const auto& messages) { return messages.size() == 100; }, std::chrono::seconds(30));
    producer.join();
    ASSERT_TRUE(seen);

    const auto km = log.messagesOn("km");
    ASSERT_EQ(km.size(), 50u);
    for (std::size_t i = 0; i < km.size(); ++i) {
        EXPECT_EQ(km[i].bytes, std::to_string(2 * i + 1));
        EXPECT_EQ(km[i].isBinary, (2 * i + 1) % 3 == 0);
    }
    EXPECT_FALSE(log.waitUntil([](const auto& messages) { return messages.size() > 100; }, std::chrono::milliseconds(1)));
}

} // namespace
