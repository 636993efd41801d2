// The game server's process is killed while a session plays. The player
// notices the loss (no more video, or the peer gone), tries to reconnect,
// finds nobody at the reconnect endpoint and ends the session with 10002.
#include "integration/faults/FaultTest.h"
#include "support/ChildProcess.h"

#include <csignal>
#include <regex>

using namespace std::chrono_literals;

namespace {

class GameServerKilledTest : public vrqtest::FaultTest {};

TEST_F(GameServerKilledTest, TheSessionEndsWith10002AndANewOnePlays)
{
#ifndef VRQ_TOOL_vrq_game_server
    GTEST_SKIP() << "the reference server is not built";
#else
    {
        vrqtest::TempHome home;
        vrqtest::ChildProcess server({VRQ_TOOL_vrq_game_server, "--host", vrqtest::loopbackAddress(), "--port", "0"});
        ASSERT_TRUE(server.started());
        const std::string origin = server.waitForMatch(std::regex("at (http://[0-9.]+:[0-9]+)"), 20s);
        ASSERT_FALSE(origin.empty()) << "the server never said where it listens";

        vrqtest::CapturingLogDelegate logs;
        VRQGamePlayer::setLogger(&logs, 1);
        auto events = std::make_shared<vrqtest::RecordingPlayerDelegate>();
        auto player = VRQGamePlayer::create(nlohmann::json::object(), events);
        player->videoView()->setFrame({{0, 0}, {1280, 720}});
        VRQHttpHelper::setBaseHost(origin);
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return events->has("init"); }, 15s));
        httplib::Client backEnd(origin);
        const auto remote = backEnd.Post("/session", events->clientSession(), "text/plain");
        ASSERT_TRUE(remote && remote->status == 200);
        ASSERT_TRUE(player->startGameWithRemoteSession(remote->body, nullptr));
        ASSERT_TRUE(vrq::runMainLoopUntil([&] {
            return events->has("video") && !VRQSDKMonitor::sharedInstance().currentSDKReport().token().empty();
        }, 15s));

        server.kill(SIGKILL);
        ASSERT_TRUE(server.waitForExit(5s));
        const auto killedAt = std::chrono::steady_clock::now();
        // Five seconds without video start a reconnect at the latest; refused, it ends the session.
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return events->has("failure:10002"); }, 20s))
            << "events: " << testing::PrintToString(events->events());
        const auto endedAfter = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - killedAt);
        std::fprintf(stderr, "[ measured  ] session ended %lld ms after the kill\n", static_cast<long long>(endedAfter.count()));
        EXPECT_EQ(events->count("failure:10002"), 1u);
        EXPECT_TRUE(events->has("reconnect:10002") || events->has("reconnect:10020"));
        EXPECT_EQ(player->gameStatus(), VRQGameStatusStopped);
        EXPECT_TRUE(logs.contains("/cloud_gaming/reconnect?token=") && logs.contains(" failed:"))
            << "the reconnect request did not fail as a transport failure";
        EXPECT_TRUE(logs.contains("result has no sdp"));

        // Nothing more happens to an ended session.
        const auto eventsAtEnd = events->events();
        vrq::runMainLoopUntil([] { return false; }, 2s);
        EXPECT_EQ(events->events(), eventsAtEnd);

        player->stopGame();
        player.reset();
        VRQGamePlayer::setLogger(nullptr, 4);
        EXPECT_TRUE(events->allOnMainThread());
    }
    expectNothingLeftBehind();
    expectANewSessionPlays();
#endif
}

} // namespace
