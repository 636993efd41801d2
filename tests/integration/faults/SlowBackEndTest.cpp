// The back end answers reconnects late: after the player's connect time-out
// has ended the attempt. The late answer changes nothing; and when the host
// has revived the session meanwhile, the answer to the older offer is not
// taken for the answer to the newer one.
#include "integration/faults/FaultTest.h"

#include "vrq/platform/services/HttpTransport.h"

#include <algorithm>

using namespace std::chrono_literals;

namespace {

std::size_t linesWith(const vrqtest::CapturingLogDelegate& logs, const std::string& fragment)
{
    const auto lines = logs.lines();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const auto& entry) {
        return entry.second.find(fragment) != std::string::npos;
    }));
}

class SlowBackEndTest : public vrqtest::FaultTest {};

TEST_F(SlowBackEndTest, ALateReconnectAnswerIsIgnoredAndNeverTakenForANewerOne)
{
    {
        vrqtest::PlayerSession session(vrqtest::loopbackAddress(), 4.0);
        ASSERT_TRUE(session.ready());
        ASSERT_TRUE(playThisSession(session));
        auto& faults = session.server->faults();

        // The answer comes 7 s after the request, the connect time-out after 4 s.
        faults.setAnswerMode(vrqserver::AnswerMode::Delay, 7s);
        session.player->reconnectRemote();
        ASSERT_TRUE(session.waitFor([&] { return linesWith(session.logs, "start requestNewRemoteSDP") == 1; }, 5s));
        ASSERT_TRUE(session.waitForEvent("failure:10009", 1, 6s));
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusStopped);
        ASSERT_TRUE(session.waitFor([] { return vrq::HttpTransport::shared().pendingCount() == 0; }, 8s))
            << "the late answer never arrived";
        ASSERT_EQ(session.server->reconnectsServed(), 1u) << "the back end did not answer in the end";
        session.settle(300ms); // the completion, posted to the main loop, has run
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusStopped);
        EXPECT_EQ(session.delegate->count("video"), 1u);
        EXPECT_EQ(linesWith(session.logs, "playGameWithRemoteSdp:"), 1u) << "the late answer was played";
        EXPECT_EQ(session.delegate->count("failure:10009"), 1u);
        EXPECT_FALSE(session.delegate->has("failure:10002"));

        // The host revives the session; this attempt too times out before its
        // answer (7 s), and the host tries again at once, with more patience,
        // while that answer is still on its way. The newer answer takes 5 s:
        // the older one arrives first and must not be taken for it.
        session.player->reconnectRemote();
        ASSERT_TRUE(session.waitFor([&] { return linesWith(session.logs, "start requestNewRemoteSDP") == 2; }, 5s));
        ASSERT_TRUE(session.waitForEvent("failure:10009", 2, 6s));
        faults.setAnswerMode(vrqserver::AnswerMode::Delay, 5s);
        session.player->setConnectTimeout(15.0);
        session.player->reconnectRemote();
        ASSERT_TRUE(session.waitFor([&] { return linesWith(session.logs, "start requestNewRemoteSDP") == 3; }, 5s));
        EXPECT_TRUE(session.waitForEvent("video", 2, 14s)) << "events: " << testing::PrintToString(session.delegate->events());
        EXPECT_EQ(session.server->reconnectsServed(), 3u);
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
        EXPECT_EQ(session.delegate->count("failure:10009"), 2u);
        EXPECT_FALSE(session.delegate->has("failure:10002"));
        EXPECT_FALSE(session.delegate->has("failure:10000"));
    }
    expectNothingLeftBehind();
    expectANewSessionPlays();
}

} // namespace
