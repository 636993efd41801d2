// Reconnection against the reference back end: after a lost peer, after
// frozen video and after the network comes back, within a budget of three.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQDigest.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// The link as the reachability service sees it, for the time of a test.
class InjectedNetwork {
public:
    ~InjectedNetwork() { vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt); }
    void setUp(bool up)
    {
        vrq::NetworkFlagsSource::shared().injectFlags(up ? vrq::kReachabilityFlagsReachable : 0u);
    }
};

TEST(ReconnectTest, ALostPeerReconnectsWithASignedOfferAndEveryVideoRestoresTheBudget)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    // Two losses in a row, each followed by video again: a reconnected session
    // reconnects too, and its video restored the budget (counted in the unit tests).
    for (std::size_t round = 1; round <= 2; ++round) {
        ASSERT_TRUE(session.server->faults().dropPeer());
        ASSERT_TRUE(session.waitForEvent("reconnect:10002", round)) << round;
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusReconnecting);
        ASSERT_TRUE(session.waitForEvent("video", round + 1)) << round;
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
    }
    EXPECT_FALSE(session.delegate->has("failure:10002"));
    EXPECT_EQ(session.server->reconnectsServed(), 2u);
    for (const auto& request : session.server->reconnectRequests()) {
        EXPECT_TRUE(request.signatureValid);
        EXPECT_EQ(request.sig, vrq_md5(request.token + request.ts + request.token));
        EXPECT_EQ(request.uid, vrq::base64Encode("vrq-player"));
        EXPECT_EQ(request.status, 200);
    }
    EXPECT_TRUE(session.logs.contains("do reConnect time:2"));
    EXPECT_FALSE(session.logs.contains("do reConnect time:1"));
}

TEST(ReconnectTest, FiveSecondsOfFrozenVideoReconnectWithReason10020)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    session.server->faults().setVideoFrozen(true);
    const auto frozenAt = std::chrono::steady_clock::now();
    ASSERT_TRUE(session.waitForEvent("reconnect:10020", 1, 12s));
    const auto waited = std::chrono::steady_clock::now() - frozenAt;
    EXPECT_GE(waited, 4500ms);
    EXPECT_FALSE(session.delegate->has("reconnect:10002")); // audio kept the connection alive
    session.server->faults().setVideoFrozen(false);
    ASSERT_TRUE(session.waitForEvent("video", 2));
}

TEST(ReconnectTest, AnAnswerWithoutSdpEndsTheSessionWhileTheNetworkIsUp)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    session.server->faults().setAnswerMode(vrqserver::AnswerMode::Refuse);
    ASSERT_TRUE(session.server->faults().dropPeer());
    ASSERT_TRUE(session.waitForEvent("failure:10002"));
    EXPECT_EQ(session.delegate->count("reconnect:10002"), 1u);
    EXPECT_TRUE(session.logs.contains("result has no sdp {\"code\":403"));
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusStopped);
}

TEST(ReconnectTest, AReconnectWaitsForTheNetworkAndRetriesWhenItReturns)
{
    InjectedNetwork network;
    vrqtest::PlayerSession session(vrqtest::loopbackAddress(), 30.0);
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    network.setUp(false);
    session.server->faults().setAnswerMode(vrqserver::AnswerMode::Refuse);
    ASSERT_TRUE(session.server->faults().dropPeer());
    ASSERT_TRUE(session.waitForEvent("reconnect:10002"));
    // The refused answer has reached the player, which now waits for the network.
    ASSERT_TRUE(session.waitFor([&] {
        return session.server->reconnectRequests().size() == 1 && vrq::HttpTransport::shared().pendingCount() == 0;
    }));
    session.settle(500ms);
    EXPECT_EQ(session.player->gameStatus(), VRQGameStatusReconnecting);
    EXPECT_FALSE(session.delegate->has("failure:10002"));

    session.server->faults().setAnswerMode(vrqserver::AnswerMode::Normal);
    network.setUp(true);
    ASSERT_TRUE(session.waitForEvent("video", 2));
    EXPECT_EQ(session.server->reconnectsServed(), 1u);
    EXPECT_EQ(session.server->reconnectRequests().size(), 2u);
    EXPECT_TRUE(session.logs.contains("onNetworkStatusChanged:0"));
    EXPECT_TRUE(session.logs.contains("do reConnect time:1"));
}

TEST(ReconnectTest, PauseBlocksReconnectionAndResumeAfterTheEndRevivesTheSession)
{
    vrqtest::PlayerSession session(vrqtest::loopbackAddress());
    ASSERT_TRUE(session.ready());
    ASSERT_TRUE(session.play());
    session.player->pauseResumeGame(true);
    ASSERT_TRUE(session.server->faults().dropPeer());
    ASSERT_TRUE(session.waitForEvent("failure:10002"));
    EXPECT_FALSE(session.delegate->has("reconnect:10002"));

    session.player->pauseResumeGame(false); // status 5: a fresh reconnect
    ASSERT_TRUE(session.waitForEvent("video", 2));
    EXPECT_TRUE(session.logs.contains("start reconnectRemote"));
    const auto ack = session.received("ack");
    EXPECT_TRUE(ack.empty()); // the new session heard no pause or resume
}

} // namespace
