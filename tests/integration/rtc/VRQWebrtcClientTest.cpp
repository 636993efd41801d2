// The kit's RTC client against the reference game server, in-process, over
// real WebRTC on 127.0.0.1.
#include "GameServer.h"

#include "support/CapturingLogDelegate.h"
#include "support/TempHome.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <sstream>

using namespace std::chrono_literals;
using nlohmann::json;
using vrq::rtc::PeerConnectionState;

namespace {

// Records the client's delegate calls and whether each came on the main thread.
struct RecordingRtcDelegate : VRQSdkRtcDelegate {
    void onRectChangeOldSize(vrq::Size oldSize, vrq::Size newSize) override
    {
        std::lock_guard lock(mutex);
        sizes.emplace_back(oldSize, newSize);
        sizeOnMain = vrq::isMainThread();
    }
    void onDisconnection() override { disconnections++; }
    void onPeerReady() override { peerReady = true; }
    void onSetRemoteDescriptionFailed(const VRQError& error) override
    {
        std::lock_guard lock(mutex);
        remoteFailure = error;
    }
    void onSetLocalDescriptionSuccess() override { localReady = true; }
    void onSetLocalDescriptionFailure(const VRQError&) override { localFailed = true; }
    void onFirstFrameDraw() override
    {
        firstFrameOnMain = vrq::isMainThread();
        firstFrames++;
    }

    std::mutex mutex;
    std::vector<std::pair<vrq::Size, vrq::Size>> sizes;
    std::optional<VRQError> remoteFailure;
    std::atomic<bool> sizeOnMain{false};
    std::atomic<int> disconnections{0};
    std::atomic<bool> peerReady{false};
    std::atomic<bool> localReady{false};
    std::atomic<bool> localFailed{false};
    std::atomic<bool> firstFrameOnMain{false};
    std::atomic<int> firstFrames{0};
};

// A channel consumer that records what it gets and on which thread.
struct RecordingHandler : VRQWebRTCDataHandler {
    void dataChannelDidChangeState(std::int32_t state, const std::string&) override
    {
        lastState = state;
        std::lock_guard lock(mutex);
        states.push_back(state);
    }
    void onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& label) override
    {
        std::lock_guard lock(mutex);
        messages.emplace_back(label, buffer.data);
        offMain = offMain && !vrq::isMainThread();
        if (onMessage)
            onMessage(buffer);
    }
    std::mutex mutex;
    std::vector<std::pair<std::string, std::string>> messages;
    std::vector<std::int32_t> states;
    bool offMain = true;
    std::atomic<int> lastState{-1};
    std::function<void(const vrq::rtc::DataBuffer&)> onMessage;
};

class VRQWebrtcClientTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
        VRQLogManager::sharedManager().setLogDelegate(&log, 0);
        vrqserver::GameServer::Options options;
        options.video.width = 320;
        options.video.height = 240;
        server = vrqserver::GameServer::start(options);
        ASSERT_TRUE(server);
        client = VRQWebrtClient::create(json::object(), &delegate);
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.localReady.load(); }, 10s));
    }

    void TearDown() override
    {
        if (client)
            client->close();
        client.reset();
        if (server)
            server->stop();
        VRQLogManager::sharedManager().setLogDelegate(nullptr, 2);
    }

    // Hands the offer to the server and its answer to the client, then waits for the connection.
    void connect()
    {
        std::optional<std::string> answer;
        std::atomic<bool> answered{false};
        server->acceptOffer(client->getClientSession()["sdp"], [&](auto sdp, auto) {
            answer = sdp;
            answered = true;
        });
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return answered.load(); }, 10s));
        ASSERT_TRUE(answer);
        // Test traffic stays on loopback: the server offers 127.0.0.1 alone.
        std::istringstream lines(*answer);
        int candidates = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("a=candidate:", 0) != 0)
                continue;
            ++candidates;
            EXPECT_NE(line.find(" 127.0.0.1 "), std::string::npos) << line;
        }
        EXPECT_GT(candidates, 0);
        client->setRemoteSdp(*answer);
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return client->connectionState() == PeerConnectionState::Connected; }, 10s));
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return client->getDataChannelState("km") == 1; }, 10s));
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return server->latestSession()->openChannels().size() == 5; }, 10s));
    }

    vrqtest::TempHome home;
    vrqtest::CapturingLogDelegate log;
    RecordingRtcDelegate delegate;
    std::unique_ptr<vrqserver::GameServer> server;
    std::shared_ptr<VRQWebrtClient> client;
};

TEST_F(VRQWebrtcClientTest, ClientSessionHasSevenEntries)
{
    const json session = client->getClientSession();
    EXPECT_EQ(session.size(), 7u);
    EXPECT_EQ(session["type"], "offer");
    EXPECT_EQ(session["sdkType"], "IOS");
    EXPECT_EQ(session["sdkVersion"], "1.1.7.20");
    EXPECT_EQ(session["isPlanB"], false);
    EXPECT_GT(session["payloadType"].get<int>(), 0);
    EXPECT_NE(session["profile"].get<std::string>().find("profile-level-id=42e01f"), std::string::npos);
}

TEST_F(VRQWebrtcClientTest, ConnectsOpensTheFiveChannelsAndShowsVideo)
{
    connect();
    EXPECT_TRUE(delegate.peerReady);
    for (const char* label : {"hb", "ack", "sv", "cd", "km"})
        EXPECT_EQ(client->getDataChannelState(label), 1) << label;

    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.firstFrames.load() > 0; }, 10s));
    EXPECT_TRUE(delegate.firstFrameOnMain);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !delegate.sizes.empty(); }, 5s));
    EXPECT_TRUE(delegate.sizeOnMain);
    {
        std::lock_guard lock(delegate.mutex);
        EXPECT_EQ(delegate.sizes.front().first, (vrq::Size{0, 0})) << "the first report has old size zero";
        EXPECT_EQ(delegate.sizes.front().second, (vrq::Size{320, 240}));
    }
    EXPECT_EQ(client->playView()->videoSize(), (vrq::Size{320, 240}));
    ASSERT_TRUE(client->playView()->latestFrame());
    EXPECT_EQ(client->playView()->latestFrame()->width(), 320);

    // Statistics reach the report through the heartbeat's sampling.
    auto& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return report.fps() > 0 && report.videoPacketRecv() > 0; }, 5s));

    // A frame the host keeps is the decoder's memory, and stays readable
    // after the connection and its pipeline are gone.
    const auto kept = client->playView()->latestFrame();
    client->close();
    EXPECT_EQ(kept->toRgba().size(), 320u * 240u * 4u);
}

TEST_F(VRQWebrtcClientTest, HeartbeatEverySecondAndItsRepliesMeasureTheRoundTrip)
{
    auto handler = std::make_shared<RecordingHandler>();
    handler->onMessage = [](const vrq::rtc::DataBuffer& buffer) {
        // What the player does with a heartbeat reply.
        if (auto reply = vrq_dictionaryWithJsonObject(buffer.data))
            VRQSDKMonitor::sharedInstance().updateRTT(
                static_cast<std::int32_t>(vrq::nowMs() - vrq_longForKey(*reply, "timestamp", 0)));
    };
    client->registDataChannelHandler(handler, "hb");
    auto& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    report.setTotalTransMS(0);
    report.setRttMS(999999);
    connect();
    // The heartbeat timer runs on the main loop, so the wait iterates it.
    const auto& serverLog = server->latestSession()->messageLog();
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return serverLog.messagesOn("hb").size() >= 3; }, 10s));
    const auto beats = serverLog.messagesOn("hb");
    for (const auto& beat : beats) {
        const json message = json::parse(beat.bytes);
        ASSERT_EQ(message.size(), 12u) << beat.bytes;
        for (const char* key : {"fps", "delay", "bit_rate", "packet_lost", "nack", "packet_received", "gpu"})
            EXPECT_TRUE(message[key].is_string()) << key;
        for (const char* key : {"timestamp", "rtt", "load_cost_time", "input_delay"})
            EXPECT_TRUE(message[key].is_number_integer()) << key;
        EXPECT_TRUE(message["rtt_detect"].is_array());
        EXPECT_FALSE(beat.isBinary);
    }
    // The period is the protocol's one second; a late tick only delays, it never doubles up.
    const double period = static_cast<double>(beats.back().arrivalMs - beats.front().arrivalMs) / static_cast<double>(beats.size() - 1);
    EXPECT_GT(period, 700.0);
    EXPECT_LT(period, 1500.0);

    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return report.rttMS() < 1000; }, 5s)) << "a reply set the round trip";
    std::lock_guard lock(handler->mutex);
    EXPECT_FALSE(handler->messages.empty());
    EXPECT_TRUE(handler->offMain) << "handlers run on a background queue";
}

TEST_F(VRQWebrtcClientTest, TheSeiDetectionGivesTheTotalTransmissionTime)
{
    auto& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    report.setTotalTransMS(0);
    connect();
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return report.totalTransMS() != 0; }, 10s));
    const auto total = static_cast<std::int64_t>(report.totalTransMS());
    EXPECT_GT(total, 0);
    EXPECT_LT(total, 1000) << "a loopback total transmission time";
}

TEST_F(VRQWebrtcClientTest, CustomChannelsOpenAfterConnectionUpToNine)
{
    EXPECT_FALSE(client->createDataChannelWithLabel("custom_trans_1"));
    EXPECT_TRUE(log.contains("open data channel label:custom_trans_1, pc is not connected"));
    // The inner channels exist before the answer, but are not open yet.
    EXPECT_EQ(client->getDataChannelState("km"), 0);
    EXPECT_FALSE(client->sendRawData("early", "km"));
    EXPECT_TRUE(log.contains("label[km] data channel is not opened"));
    connect();
    for (int i = 1; i <= 4; ++i)
        EXPECT_TRUE(client->createDataChannelWithLabel("custom_trans_" + std::to_string(i))) << i;
    EXPECT_FALSE(client->createDataChannelWithLabel("custom_trans_5")) << "the tenth channel is refused";

    EXPECT_FALSE(client->sendRawData("x", "nowhere"));
    EXPECT_TRUE(log.contains("label[nowhere] data channel is not exist"));
    EXPECT_EQ(client->getDataChannelState("nowhere"), 0);

    // Larger than the peer accepts: refused with its log line, and the channel stays usable.
    EXPECT_FALSE(client->sendRawData(std::string(300000, 'x'), "km"));
    EXPECT_TRUE(log.contains("label[km] data sendData data failed, data.length:300000"));
    EXPECT_EQ(client->getDataChannelState("km"), 1);

    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return client->getDataChannelState("custom_trans_4") == 1; }, 5s));
    EXPECT_TRUE(client->sendRawData(std::string("\x00\x01\x02", 3), "custom_trans_4", true));
    const auto& serverLog = server->latestSession()->messageLog();
    ASSERT_TRUE(serverLog.waitUntil([](const auto& m) { return !m.empty() && m.back().label == "custom_trans_4"; }, 5s));
    EXPECT_TRUE(serverLog.messagesOn("custom_trans_4").back().isBinary);
    EXPECT_EQ(serverLog.messagesOn("custom_trans_4").back().bytes, std::string("\x00\x01\x02", 3));
}

TEST_F(VRQWebrtcClientTest, ServerMessagesReachTheLabelsHandlerAndUnknownLabelsAreDropped)
{
    auto handler = std::make_shared<RecordingHandler>();
    client->registDataChannelHandler(handler, "sv");
    connect();
    auto session = server->latestSession();
    EXPECT_TRUE(session->send("cd", R"({"nobody":"listens"})"));
    EXPECT_TRUE(session->send("sv", R"({"type":"game_start_complete"})"));
    EXPECT_TRUE(session->sendBinary("sv", std::string(60000, 'x')));
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        std::lock_guard lock(handler->mutex);
        return handler->messages.size() == 2;
    }, 5s));
    std::lock_guard lock(handler->mutex);
    EXPECT_EQ(handler->messages[0], std::make_pair(std::string("sv"), std::string(R"({"type":"game_start_complete"})")));
    EXPECT_EQ(handler->messages[1].second.size(), 60000u);
    EXPECT_TRUE(handler->offMain);
}

TEST_F(VRQWebrtcClientTest, AnAnswerThatIsNotSdpFailsWithTheError)
{
    client->setRemoteSdp("this is not a session description");
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        std::lock_guard lock(delegate.mutex);
        return delegate.remoteFailure.has_value();
    }, 5s));
    EXPECT_FALSE(client->remoteSdp());
    EXPECT_TRUE(log.contains("setRemoteSdp error"));
}

TEST_F(VRQWebrtcClientTest, AVanishedServerLeadsToOnDisconnectionAndReconnectMakesANewOffer)
{
    connect();
    // Silence counts once media has flowed: a peer that never sent any is not "gone".
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.firstFrames.load() > 0; }, 10s));
    const std::string firstOffer = client->getClientSession()["sdp"];
    const auto started = std::chrono::steady_clock::now();
    server->stop();
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.disconnections.load() > 0; }, 30s));
    const auto detection = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    std::printf("disconnection detected after %lld ms\n", static_cast<long long>(detection.count()));

    delegate.localReady = false;
    client->reConnect();
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return delegate.localReady.load(); }, 10s));
    EXPECT_NE(client->getClientSession()["sdp"], firstOffer);
}

TEST_F(VRQWebrtcClientTest, AnAnswerAfterCloseFailsInsteadOfWaitingForever)
{
    client->close();
    client->setRemoteSdp("v=0\r\n");
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        std::lock_guard lock(delegate.mutex);
        return delegate.remoteFailure.has_value();
    }, 5s));
    std::lock_guard lock(delegate.mutex);
    EXPECT_EQ(delegate.remoteFailure->description, "the connection is closed");
}

// A channel closed from this side (a reconnect, closeDataChannelWithLabel)
// tells its handler, closing then closed, before the next one opens.
TEST_F(VRQWebrtcClientTest, ChannelsClosedHereReportClosingAndClosed)
{
    auto km = std::make_shared<RecordingHandler>();
    auto custom = std::make_shared<RecordingHandler>();
    client->registDataChannelHandler(km, "km");
    connect();
    client->registDataChannelHandler(custom, "custom_trans_1");
    ASSERT_TRUE(client->createDataChannelWithLabel("custom_trans_1"));
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return custom->lastState.load() == 1 && km->lastState.load() == 1; }, 5s))
        << "custom " << custom->lastState.load() << " (" << client->getDataChannelState("custom_trans_1") << "), km " << km->lastState.load();

    client->closeDataChannelWithLabel("custom_trans_1");
    client->reConnect();
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return km->lastState.load() == 3 && custom->lastState.load() == 3; }, 5s));
    std::lock_guard lock(km->mutex);
    EXPECT_EQ(km->states, (std::vector<std::int32_t>{1, 2, 3}));
    std::lock_guard customLock(custom->mutex);
    EXPECT_EQ(custom->states, (std::vector<std::int32_t>{1, 2, 3}));
}

TEST_F(VRQWebrtcClientTest, TextWithAZeroByteIsRefusedWholeNotCutShort)
{
    connect();
    EXPECT_FALSE(client->sendRawData(std::string("before\0after", 12), "km"));
    EXPECT_TRUE(log.contains("label[km] data sendData data failed, data.length:12"));
    EXPECT_TRUE(client->sendRawData("whole", "km"));
    const auto& serverLog = server->latestSession()->messageLog();
    ASSERT_TRUE(serverLog.waitUntil([](const auto& m) { return !m.empty() && m.back().bytes == "whole"; }, 5s));
    for (const auto& message : serverLog.messagesOn("km"))
        EXPECT_NE(message.bytes, "before") << "a cut text reached the server";
}

} // namespace
