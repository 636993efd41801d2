// The engine's connections through failure and shutdown: bad answers, a
// peer that goes away, and closing from inside callbacks.
#include "RtcTestPeers.h"

#include "vrq/platform/engine/RtcFaultInjection_p.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <thread>

namespace vrqtest::rtc {
namespace {

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

// An offerer with its offer set, not yet answered.
struct OfferedPeer {
    PeerRecorder events;
    std::shared_ptr<PeerConnection> connection;
    std::shared_ptr<DataChannel> channel;

    bool offer()
    {
        restrictIceToLoopback();
        connection = PeerConnection::create(Configuration{}, &events);
        channel = connection->createDataChannel("hb", true, nullptr);
        connection->addRecvOnlyTransceiver(MediaType::Video);
        connection->addRecvOnlyTransceiver(MediaType::Audio);
        Await<DescriptionResult> offered;
        connection->offer(describe(offered));
        auto offer = offered.wait();
        if (!offer || !offer->first)
            return false;
        Await<std::optional<vrq::rtc::Error>> set;
        connection->setLocalDescription(*offer->first, set.callback());
        auto result = set.wait();
        return result && !*result;
    }
};

} // namespace

TEST(PeerConnectionLifecycleTest, AnswersThatAreNotSessionDescriptionsCompleteWithAnError)
{
    OfferedPeer peer;
    ASSERT_TRUE(peer.offer());
    for (const std::string& answer : {std::string("this is not SDP"), std::string(), std::string("v=0\r\no=- 1 0 IN IP4 0.0.0.0\r\nbroken line\r\n"),
                                     std::string("v=0\r\no=- 1 0 IN IP4 0.0.0.0\r\ns=-\r\nt=0 0\r\n")}) {
        Await<std::optional<vrq::rtc::Error>> applied;
        peer.connection->setRemoteDescription({SdpType::Answer, answer}, applied.callback());
        const auto result = applied.wait();
        ASSERT_TRUE(result) << "no completion for " << answer;
        ASSERT_TRUE(result->has_value()) << "accepted " << answer;
        EXPECT_EQ((*result)->domain, "VRQRtc");
        EXPECT_NE((*result)->code, 0);
    }
    EXPECT_NE(peer.connection->connectionState(), PeerConnectionState::Connected);
    peer.connection->close();
}

TEST(PeerConnectionLifecycleTest, SendingOnAChannelThatIsNotOpenYetFails)
{
    OfferedPeer peer;
    ASSERT_TRUE(peer.offer());
    ASSERT_TRUE(peer.channel);
    EXPECT_EQ(peer.channel->readyState(), DataChannelState::Connecting);
    EXPECT_FALSE(peer.channel->sendData({"{}", false}));
    EXPECT_FALSE(peer.channel->sendData({std::string("\0\1", 2), true}));
    peer.connection->close();
    EXPECT_EQ(peer.channel->readyState(), DataChannelState::Closed);
}

// After close() no event reaches the observer, and what is asked for
// afterwards fails at once: a caller is never left waiting.
TEST(PeerConnectionLifecycleTest, OperationsAfterCloseFailOrDoNothing)
{
    OfferedPeer peer;
    ASSERT_TRUE(peer.offer());
    const int callsBeforeClose = peer.events.calls();
    peer.connection->close();
    EXPECT_EQ(peer.connection->connectionState(), PeerConnectionState::Closed);
    EXPECT_EQ(peer.connection->createDataChannel("late", true, nullptr), nullptr);
    Await<DescriptionResult> offered;
    peer.connection->offer(describe(offered));
    const auto offer = offered.wait();
    ASSERT_TRUE(offer);
    EXPECT_FALSE(offer->first);
    ASSERT_TRUE(offer->second);
    EXPECT_EQ(offer->second->description, "the connection is closed");
    Await<std::optional<vrq::rtc::Error>> applied;
    peer.connection->setRemoteDescription({SdpType::Answer, "v=0\r\n"}, applied.callback());
    const auto failure = applied.wait();
    ASSERT_TRUE(failure && *failure);
    EXPECT_EQ((*failure)->description, "the connection is closed");
    peer.connection->close();
    EXPECT_EQ(peer.events.calls(), callsBeforeClose);
}

TEST(PeerConnectionLifecycleTest, ClosingTheAnswererDisconnectsTheOfferer)
{
    ConnectedPair pair;
    ASSERT_EQ(pair.connect().value_or(""), "");
    ASSERT_TRUE(waitUntil([&] { return pair.frames->count() > 0; }));
    const auto closedAt = Clock::now();
    pair.answerer->close();
    ASSERT_TRUE(waitUntil([&] { return pair.offererEvents.reachedAt({PeerConnectionState::Disconnected, PeerConnectionState::Failed}).has_value(); }, 30s));
    const auto detectedAt = *pair.offererEvents.reachedAt({PeerConnectionState::Disconnected, PeerConnectionState::Failed});
    std::printf("[ measured ] the offerer noticed the closed answerer after %.0f ms\n", milliseconds(detectedAt - closedAt));
    const auto ice = pair.offerer->iceConnectionState();
    EXPECT_TRUE(ice == IceConnectionState::Disconnected || ice == IceConnectionState::Failed) << stringForState(ice);
    // Destroyed without close(): the destructor stops everything.
    pair.offerer.reset();
    pair.answerer.reset();
}

// Closes its connection from inside a callback, then counts any callback
// that still arrives.
class ClosingRecorder : public PeerRecorder {
public:
    enum class Trigger { FirstFrame, Connected };
    explicit ClosingRecorder(Trigger trigger)
        : m_trigger(trigger)
    {
    }
    void setConnection(std::shared_ptr<PeerConnection> connection) { m_connection = std::move(connection); }

    void didReceiveFirstFrame() override
    {
        countLate();
        PeerRecorder::didReceiveFirstFrame();
        if (m_trigger == Trigger::FirstFrame)
            closeNow();
    }
    void didChangeConnectionState(PeerConnectionState state) override
    {
        countLate();
        PeerRecorder::didChangeConnectionState(state);
        if (m_trigger == Trigger::Connected && state == PeerConnectionState::Connected)
            closeNow();
    }
    void didChangeIceConnectionState(IceConnectionState state) override
    {
        countLate();
        PeerRecorder::didChangeIceConnectionState(state);
    }
    void didChangeVideoSize(int width, int height) override
    {
        countLate();
        PeerRecorder::didChangeVideoSize(width, height);
    }
    void didReceiveSei(const std::uint8_t* data, std::size_t length) override
    {
        countLate();
        PeerRecorder::didReceiveSei(data, length);
    }
    bool closed() const { return m_closed.load(); }
    int late() const { return m_late.load(); }

private:
    void closeNow()
    {
        m_connection->close();
        m_closed.store(true);
    }
    void countLate()
    {
        if (m_closed.load())
            ++m_late;
    }

    const Trigger m_trigger;
    std::shared_ptr<PeerConnection> m_connection;
    std::atomic<bool> m_closed{false};
    std::atomic<int> m_late{0};
};

class PeerConnectionCloseInCallbackTest : public ::testing::TestWithParam<ClosingRecorder::Trigger> {};

TEST_P(PeerConnectionCloseInCallbackTest, NoCallbackFollowsAndTheSenderGoesOn)
{
    restrictIceToLoopback();
    ClosingRecorder events(GetParam());
    PeerRecorder answererEvents;
    auto frames = std::make_shared<FrameCounter>();
    auto offerer = PeerConnection::create(Configuration{}, &events);
    events.setConnection(offerer);
    offerer->setVideoSink(frames);
    ChannelRecorder channelEvents;
    auto channel = offerer->createDataChannel("hb", true, &channelEvents);
    offerer->addRecvOnlyTransceiver(MediaType::Video);
    offerer->addRecvOnlyTransceiver(MediaType::Audio);
    Await<DescriptionResult> offered;
    offerer->offer(describe(offered));
    auto offer = offered.wait();
    ASSERT_TRUE(offer && offer->first);
    offerer->setLocalDescription(*offer->first, [](std::optional<vrq::rtc::Error>) {});

    auto answerer = AnsweringPeerConnection::create(Configuration{}, testScene(), &answererEvents);
    Await<std::optional<vrq::rtc::Error>> remoteSet;
    answerer->setRemoteDescription(*offer->first, remoteSet.callback());
    ASSERT_TRUE(remoteSet.wait());
    Await<DescriptionResult> answered;
    answerer->answer(describe(answered));
    auto answer = answered.wait();
    ASSERT_TRUE(answer && answer->first);
    answerer->setLocalDescription(*answer->first, [](std::optional<vrq::rtc::Error>) {});
    Await<DescriptionResult> gathered;
    answerer->localDescriptionWithCandidates(describe(gathered));
    auto complete = gathered.wait();
    ASSERT_TRUE(complete && complete->first);
    offerer->setRemoteDescription(*complete->first, [](std::optional<vrq::rtc::Error>) {});

    ASSERT_TRUE(waitUntil([&] { return events.closed(); }));
    const int framesAtClose = frames->count();
    const int channelCallsAtClose = channelEvents.calls();
    // The answerer keeps sending for a while; nothing of it may reach the closed offerer.
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(events.late(), 0);
    EXPECT_EQ(frames->count(), framesAtClose);
    EXPECT_EQ(channelEvents.calls(), channelCallsAtClose);
    EXPECT_EQ(offerer->connectionState(), PeerConnectionState::Closed);
    EXPECT_FALSE(channel->sendData({"after close", false}));
    answerer.reset(); // still sending: destroyed without close()
}

INSTANTIATE_TEST_SUITE_P(Triggers, PeerConnectionCloseInCallbackTest,
                         ::testing::Values(ClosingRecorder::Trigger::FirstFrame, ClosingRecorder::Trigger::Connected),
                         [](const ::testing::TestParamInfo<ClosingRecorder::Trigger>& trigger) {
                             return trigger.param == ClosingRecorder::Trigger::FirstFrame ? "FirstFrameOnStreamingThread" : "ConnectedOnEngineThread";
                         });

// An answer whose candidates nobody answers (its ports rewritten to the
// discard port, where nothing listens) never connects: the engine says so
// itself, within its bound, instead of leaving the connection checking.
TEST(PeerConnectionLifecycleTest, UnreachableCandidatesFailWithinTheIceBound)
{
    ConnectedPair pair;
    pair.iceConnectTimeoutMs = 600;
    pair.waitForConnection = false;
    pair.editAnswer = [](const std::string& sdp) {
        static const std::regex candidatePort(R"((a=candidate:\S+ \d+ \S+ \d+ \S+ )\d+)");
        return std::regex_replace(sdp, candidatePort, "$019");
    };
    ASSERT_EQ(pair.connect(), std::nullopt);
    ASSERT_NE(pair.answerSdp.find(" 9 typ host"), std::string::npos) << pair.answerSdp;
    ASSERT_TRUE(waitUntil([&] { return pair.offererEvents.reached(PeerConnectionState::Failed); }, 10s));
    const auto waited = Clock::now() - pair.answerAppliedAt;
    EXPECT_LT(waited, 3s) << "the failure came from the bound, not from a later give-up";
    EXPECT_FALSE(pair.offererEvents.reached(PeerConnectionState::Connected));
    pair.close();
}

} // namespace vrqtest::rtc

namespace vrqtest::rtc {

// An element that fails in mid-session (the decoder, DTLS) stops its part of
// the pipeline for good: the connection reports failed at once, rather than
// leaving it to a silence check or a video timeout later.
class ElementFailureTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ElementFailureTest, FailsTheConnectionAtOnce)
{
    ConnectedPair pair;
    ASSERT_EQ(pair.connect(), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return pair.frames->count() > 0; }));
    const std::string factory = GetParam().empty() ? videoDecoderName() : GetParam();
    ASSERT_TRUE(postElementError(*pair.offerer, factory)) << factory;
    const auto failedAt = Clock::now();
    ASSERT_TRUE(waitUntil([&] { return pair.offererEvents.reached(PeerConnectionState::Failed); }, 5s));
    EXPECT_LT(Clock::now() - failedAt, 1s);
    EXPECT_EQ(pair.offerer->connectionState(), PeerConnectionState::Failed);
    pair.close();
}

INSTANTIATE_TEST_SUITE_P(Elements, ElementFailureTest, ::testing::Values(std::string(), std::string("dtlsdec")),
                         [](const ::testing::TestParamInfo<std::string>& element) {
                             return element.param.empty() ? std::string("VideoDecoder") : element.param;
                         });

} // namespace vrqtest::rtc
