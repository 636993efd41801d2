// The kit's RTC client, as the player drives it, against aiortc answering as
// a game server: an independent WebRTC stack on 127.0.0.1.
#include "integration/peers/AiortcPeer.h"

#include "support/TempHome.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace std::chrono_literals;
using nlohmann::json;
using vrqtest::aiortc::eventsOf;

namespace {

struct SessionDelegate : VRQSdkRtcDelegate {
    void onSetRemoteDescriptionFailed(const VRQError&) override { remoteFailed = true; }
    void onSetLocalDescriptionSuccess() override { localReady = true; }
    void onSetLocalDescriptionFailure(const VRQError&) override {}
    void onPeerReady() override { peerReady = true; }
    void onFirstFrameDraw() override { firstFrame = true; }
    std::atomic<bool> remoteFailed{false};
    std::atomic<bool> localReady{false};
    std::atomic<bool> peerReady{false};
    std::atomic<bool> firstFrame{false};
};

TEST(AiortcKitSessionTest, TheKitsClientPlaysASessionWithAiortc)
{
    if (!vrqtest::aiortc::imports())
        GTEST_SKIP() << vrqtest::aiortc::kPython << " cannot import aiortc";
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    vrqtest::TempHome home;
    SessionDelegate delegate;
    auto client = VRQWebrtClient::create(json::object(), &delegate);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.localReady.load(); }, 10s));

    vrqtest::ChildProcess peer({vrqtest::aiortc::kPython, vrqtest::aiortc::peerScript(), "--token", "kit", "--timeout", "60"});
    ASSERT_TRUE(peer.started());
    ASSERT_TRUE(peer.writeLine(json{{"type", "offer"}, {"sdp", client->getClientSession()["sdp"]}}.dump()));
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !eventsOf(peer, "answer").empty() || peer.outputEnded(); }, 30s));
    const auto answers = eventsOf(peer, "answer");
    ASSERT_FALSE(answers.empty()) << "aiortc gave no answer";
    client->setRemoteSdp(answers.front()["sdp"]);

    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.firstFrame.load(); }, 20s)) << "no decoded frame";
    EXPECT_FALSE(delegate.remoteFailed);
    EXPECT_TRUE(delegate.peerReady);
    EXPECT_GT(client->playView()->videoSize().width, 0);
    for (const char* label : {"hb", "ack", "sv", "cd", "km"})
        EXPECT_TRUE(vrq::runMainLoopUntil([&] { return client->getDataChannelState(label) == 1; }, 10s)) << label;

    // The heartbeat runs on the main loop and reaches aiortc as text.
    EXPECT_TRUE(client->sendRawData(R"({"type":"keyboard","key":65})", "km"));
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        const auto messages = eventsOf(peer, "message");
        return std::count_if(messages.begin(), messages.end(), [](const json& m) { return m["label"] == "hb"; }) >= 2;
    }, 10s));
    bool keyboardArrived = false;
    for (const auto& message : eventsOf(peer, "message"))
        keyboardArrived = keyboardArrived || (message["label"] == "km" && message["binary"] == false);
    EXPECT_TRUE(keyboardArrived);
    client->close();
}

} // namespace
