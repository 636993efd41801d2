// The engine's offerer against an independent WebRTC stack: aiortc, answering
// as a game server would (H.264 with detection SEI, Opus, heartbeat replies).
#include "integration/peers/AiortcPeer.h"
#include "support/ChildProcess.h"
#include "integration/server/KitOfferer.h"

#include "support/Shell.h"
#include "support/TempHome.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

using nlohmann::json;
using vrqtest::rtc::waitUntil;
using namespace std::chrono_literals;

namespace {

using vrqtest::aiortc::eventsOf;
using vrqtest::aiortc::kPython;
using vrqtest::aiortc::peerScript;
constexpr const char* kToken = "aiortc-interop-token";

std::vector<std::string> candidateLines(const std::string& sdp)
{
    std::vector<std::string> lines;
    std::istringstream stream(sdp);
    for (std::string line; std::getline(stream, line);)
        if (line.rfind("a=candidate:", 0) == 0)
            lines.push_back(line);
    return lines;
}

} // namespace

// One aiortc peer, connected once, for the suite.
class AiortcInteropTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (!vrqtest::aiortc::imports())
            return;
        s_home = new vrqtest::TempHome;
        s_client = new vrqtest::KitOfferer;
        s_peer = new vrqtest::ChildProcess({kPython, peerScript(), "--token", kToken, "--timeout", "120"});
        s_failure = connect();
    }

    static std::string connect()
    {
        if (!s_peer->started())
            return "the peer did not start";
        if (auto failed = s_client->createOffer())
            return *failed;
        if (!s_peer->writeLine(json{{"type", "offer"}, {"sdp", s_client->offerSdp()}}.dump()))
            return "the peer took no offer";
        if (!waitUntil([] { return !eventsOf(*s_peer, "answer").empty() || s_peer->outputEnded(); }, 30s))
            return "no answer in time";
        const auto answers = eventsOf(*s_peer, "answer");
        if (answers.empty())
            return "the peer ended without answering";
        s_answerSdp = answers.front()["sdp"];
        return s_client->applyAnswer(s_answerSdp).value_or("");
    }

    static void TearDownTestSuite()
    {
        delete s_client;
        delete s_peer;
        delete s_home;
        s_client = nullptr;
        s_peer = nullptr;
        s_home = nullptr;
    }

    void SetUp() override
    {
        if (!s_peer)
            GTEST_SKIP() << kPython << " cannot import aiortc";
        ASSERT_EQ(s_failure, "") << "aiortc did not connect";
    }

    static vrqtest::TempHome* s_home;
    static vrqtest::KitOfferer* s_client;
    static vrqtest::ChildProcess* s_peer;
    static std::string s_failure;
    static std::string s_answerSdp;
};

vrqtest::TempHome* AiortcInteropTest::s_home = nullptr;
vrqtest::KitOfferer* AiortcInteropTest::s_client = nullptr;
vrqtest::ChildProcess* AiortcInteropTest::s_peer = nullptr;
std::string AiortcInteropTest::s_failure;
std::string AiortcInteropTest::s_answerSdp;

TEST_F(AiortcInteropTest, AnswerSendsH264AndOpusFromLoopbackOnly)
{
    EXPECT_NE(s_answerSdp.find("H264/90000"), std::string::npos) << s_answerSdp;
    EXPECT_NE(s_answerSdp.find("opus/48000"), std::string::npos) << s_answerSdp;
    EXPECT_NE(s_answerSdp.find("a=sendonly"), std::string::npos) << s_answerSdp;
    const auto candidates = candidateLines(s_answerSdp);
    ASSERT_FALSE(candidates.empty());
    for (const auto& line : candidates)
        EXPECT_NE(line.find(" 127.0.0.1 "), std::string::npos) << line;
}

TEST_F(AiortcInteropTest, MessagesOnEveryLabelReachThePeerWithTheirKind)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const std::size_t before = eventsOf(*s_peer, "message").size();
    const std::string binary("\0\1\2\3binary", 10);
    for (const char* label : {"ack", "sv", "cd", "km"})
        ASSERT_TRUE(s_client->send(label, std::string(R"({"label":")") + label + "\"}")) << label;
    ASSERT_TRUE(s_client->send("km", binary, true));
    ASSERT_TRUE(waitUntil([&] { return eventsOf(*s_peer, "message").size() >= before + 5; }, 20s));

    const auto messages = eventsOf(*s_peer, "message");
    for (const char* label : {"ack", "sv", "cd", "km"}) {
        const auto found = std::find_if(messages.begin(), messages.end(), [&](const json& event) {
            return event["label"] == label && event["binary"] == false && event["data"] == std::string(R"({"label":")") + label + "\"}";
        });
        EXPECT_NE(found, messages.end()) << label;
    }
    const auto binaryEvent = std::find_if(messages.begin(), messages.end(), [](const json& event) { return event["binary"] == true; });
    ASSERT_NE(binaryEvent, messages.end());
    EXPECT_EQ(vrq::base64Decode((*binaryEvent)["data"].get<std::string>()), binary);
}

TEST_F(AiortcInteropTest, HeartbeatIsAnsweredWithTheTokenAndItsOwnTimestamp)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const std::size_t before = s_client->received("hb").size();
    const json heartbeat = VRQSDKMonitor::sharedInstance().createHeartbeatMessage();
    ASSERT_TRUE(s_client->send("hb", heartbeat.dump()));
    ASSERT_TRUE(waitUntil([&] { return s_client->received("hb").size() > before; }, 20s));
    const json reply = json::parse(s_client->received("hb")[before].data, nullptr, false);
    EXPECT_EQ(reply, (json{{"timestamp", heartbeat["timestamp"]}, {"token", kToken}}));
}

TEST_F(AiortcInteropTest, VideoFromAiortcDecodes)
{
    ASSERT_TRUE(waitUntil([] { return s_client->frames().count() >= 10; }, 20s));
    const auto frame = s_client->frames().last();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), 320);
    EXPECT_EQ(frame->height(), 240);
    EXPECT_EQ(s_client->events().firstFrames(), 1);
}

TEST_F(AiortcInteropTest, DetectionSeiFromAnotherEncoderIsReadAndEvaluated)
{
    ASSERT_TRUE(waitUntil([] { return s_client->allChannelsOpen(); }));
    const json heartbeat = VRQSDKMonitor::sharedInstance().createHeartbeatMessage();
    const json& element = heartbeat["rtt_detect"][0];
    ASSERT_TRUE(s_client->send("hb", heartbeat.dump()));
    std::string text;
    ASSERT_TRUE(waitUntil([&] {
        for (const auto& sei : s_client->rttDetectSei())
            if (json::parse(sei.substr(3), nullptr, false)["rtt_detect"][0] == element)
                text = sei;
        return !text.empty();
    }, 20s));
    VRQSDKReport& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    report.setTotalTransMS(999'999);
    VRQSDKMonitor::sharedInstance().updateTotalTrans(text.substr(3));
    const std::int64_t roundTrip = vrq::nowMs() - (element["base"].get<std::int64_t>() + element["s"].get<std::int64_t>());
    const auto total = static_cast<std::int32_t>(report.totalTransMS());
    EXPECT_GE(total, 0);
    EXPECT_LE(total, roundTrip);
}

TEST(AiortcPeerTest, EndsWithASummaryWhenItsInputCloses)
{
    if (!vrqtest::aiortc::imports())
        GTEST_SKIP() << kPython << " cannot import aiortc";
    vrqtest::ChildProcess peer({kPython, peerScript(), "--timeout", "60"});
    ASSERT_TRUE(peer.started());
    peer.closeInput();
    const auto status = peer.waitForExit(30s);
    ASSERT_TRUE(status) << "still running with its input closed";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
    ASSERT_TRUE(waitUntil([&] { return peer.outputEnded(); }, 10s));
    const auto summaries = eventsOf(peer, "summary");
    ASSERT_EQ(summaries.size(), 1u);
    EXPECT_EQ(summaries[0]["messages"], json::object());
    EXPECT_TRUE(eventsOf(peer, "answer").empty());
}
