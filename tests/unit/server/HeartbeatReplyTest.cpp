#include "HeartbeatReply.h"

#include "support/TempHome.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <gtest/gtest.h>

#include <limits>

using nlohmann::json;
using vrqserver::heartbeatReply;

namespace {

TEST(HeartbeatReplyTest, EchoesTheVeryTimestampBesideTheToken)
{
    for (const json& timestamp : {json(0), json(1'700'000'000'123LL), json(std::numeric_limits<std::int64_t>::max()),
                                  json(std::numeric_limits<std::uint64_t>::max()), json(-5)}) {
        const auto reply = heartbeatReply(json{{"timestamp", timestamp}, {"fps", "30.00"}}, "tok-1");
        ASSERT_TRUE(reply) << timestamp;
        EXPECT_EQ(reply->dump(), R"({"timestamp":)" + timestamp.dump() + R"(,"token":"tok-1"})");
        EXPECT_EQ((*reply)["timestamp"].type(), timestamp.type());
    }
}

TEST(HeartbeatReplyTest, AnswersTheKitsHeartbeatSoThatItReadsItsOwnTimestampBack)
{
    vrqtest::TempHome home;
    const json heartbeat = VRQSDKMonitor::sharedInstance().createHeartbeatMessage();
    const auto reply = heartbeatReply(heartbeat, "session-token");
    ASSERT_TRUE(reply);
    EXPECT_EQ(vrq_longForKey(*reply, "timestamp", 0), heartbeat["timestamp"].get<std::int64_t>());
    EXPECT_EQ(vrq_stringForKey(*reply, "token", std::nullopt), "session-token");
    EXPECT_FALSE(reply->contains("code")) << "a code would end the client's session";
}

class HeartbeatReplyRefusalTest : public ::testing::TestWithParam<json> {};

TEST_P(HeartbeatReplyRefusalTest, GetsNoReply)
{
    EXPECT_FALSE(heartbeatReply(GetParam(), "tok"));
}

INSTANTIATE_TEST_SUITE_P(Malformed, HeartbeatReplyRefusalTest,
                         ::testing::Values(json::parse("{", nullptr, false), json(nullptr), json("timestamp"),
                                           json::array({1}), json::object(), json{{"timestamp", "1700000000000"}},
                                           json{{"timestamp", 1.5}}, json{{"timestamp", true}},
                                           json{{"timestamp", nullptr}}, json{{"token", "x"}}));

} // namespace
