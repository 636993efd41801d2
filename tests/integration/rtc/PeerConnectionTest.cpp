// The WebRTC engine end to end on loopback: one offerer receiving like the
// kit and one answerer sending like the reference server, connected once
// for the whole suite.
#include "RtcTestPeers.h"

#include "vrq/platform/engine/RtcEngine_p.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <sstream>

namespace vrqtest::rtc {
namespace {

std::vector<std::string> linesOf(const std::string& sdp)
{
    std::vector<std::string> lines;
    std::istringstream stream(sdp);
    std::string line;
    while (std::getline(stream, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// The attribute lines of each m= section, in order.
std::vector<std::vector<std::string>> sectionsOf(const std::string& sdp)
{
    std::vector<std::vector<std::string>> sections;
    for (const std::string& line : linesOf(sdp)) {
        if (line.rfind("m=", 0) == 0)
            sections.emplace_back();
        if (!sections.empty())
            sections.back().push_back(line);
    }
    return sections;
}

bool contains(const std::vector<std::string>& lines, const std::string& wanted)
{
    return std::find(lines.begin(), lines.end(), wanted) != lines.end();
}

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

} // namespace

class PeerConnectionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_pair = new ConnectedPair;
        s_failure = s_pair->connect().value_or("");
        if (s_failure.empty()) {
            std::printf("[ measured ] offer set %.0f ms after creation; connected %.0f ms after the answer\n",
                        milliseconds(s_pair->offerSetAt - s_pair->createdAt),
                        milliseconds(*s_pair->offererEvents.reachedAt({PeerConnectionState::Connected}) - s_pair->answerAppliedAt));
        }
    }
    static void TearDownTestSuite()
    {
        s_pair->close();
        delete s_pair;
        s_pair = nullptr;
    }
    void SetUp() override { ASSERT_EQ(s_failure, "") << "the peers did not connect"; }

    ConnectedPair& pair() { return *s_pair; }

    static ConnectedPair* s_pair;
    static std::string s_failure;
};

ConnectedPair* PeerConnectionTest::s_pair = nullptr;
std::string PeerConnectionTest::s_failure;

TEST_F(PeerConnectionTest, OfferHasVideoAudioAndApplicationSectionsWithIndexMids)
{
    const auto sections = sectionsOf(pair().offerSdp);
    ASSERT_EQ(sections.size(), 3U) << pair().offerSdp;
    EXPECT_EQ(sections[0][0].substr(0, 8), "m=video ");
    EXPECT_EQ(sections[1][0].substr(0, 8), "m=audio ");
    EXPECT_EQ(sections[2][0].substr(0, 14), "m=application ");
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(contains(sections[i], "a=mid:" + std::to_string(i))) << "section " << i;
    EXPECT_TRUE(contains(sections[0], "a=recvonly"));
    EXPECT_TRUE(contains(sections[1], "a=recvonly"));
    EXPECT_TRUE(contains(linesOf(pair().offerSdp), "a=group:BUNDLE 0 1 2")) << pair().offerSdp;
    EXPECT_EQ(pair().offerSdp.find("mid:video"), std::string::npos);
    EXPECT_EQ(pair().offerSdp.find("mid:audio"), std::string::npos);
    EXPECT_EQ(pair().offerSdp.find("mid:data"), std::string::npos);
    // The process's own certificate, by its fingerprint (peers that check it refuse any other).
    const auto& certificate = vrq::rtc::engine::certificate();
    ASSERT_TRUE(certificate);
    for (const auto& section : sections)
        EXPECT_TRUE(contains(section, "a=fingerprint:sha-256 " + certificate->sha256Fingerprint)) << section[0];
}

TEST_F(PeerConnectionTest, FixedChannelsOpenOnBothSides)
{
    // The state reads open before its event reaches the observer on the engine's thread.
    ASSERT_TRUE(waitUntil([&] {
        for (const char* label : kFixedLabels) {
            const auto states = pair().channelEvents[label]->states();
            if (states.empty() || states.back() != DataChannelState::Open)
                return false;
        }
        return pair().allChannelsOpen() && pair().answererEvents.remoteChannelCount() >= 5;
    }));
    for (const char* label : kFixedLabels) {
        auto remote = pair().answererEvents.remoteChannel(label);
        ASSERT_TRUE(remote) << label;
        EXPECT_EQ(remote->channel->label(), label);
        EXPECT_EQ(remote->channel->readyState(), DataChannelState::Open) << label;
        EXPECT_EQ(pair().channels[label]->label(), label);
        EXPECT_EQ(pair().channelEvents[label]->states(), std::vector<DataChannelState>{DataChannelState::Open}) << label;
    }
    EXPECT_EQ(pair().offerer->connectionState(), PeerConnectionState::Connected);
    const auto ice = pair().offerer->iceConnectionState();
    EXPECT_TRUE(ice == IceConnectionState::Connected || ice == IceConnectionState::Completed) << static_cast<int>(ice);
}

TEST_F(PeerConnectionTest, StatesAreReportedInOrderAndIceConnectsBeforeCompleting)
{
    // webrtcbin often jumps from checking to completed; the engine reports
    // connected in between, as other stacks do (the kit acts on connected).
    for (PeerRecorder* events : {&pair().offererEvents, &pair().answererEvents}) {
        const auto ice = events->iceStates();
        ASSERT_GE(ice.size(), 2U);
        EXPECT_EQ(ice[0], IceConnectionState::Checking);
        EXPECT_EQ(ice[1], IceConnectionState::Connected);
        if (ice.size() > 2) {
            EXPECT_EQ(ice[2], IceConnectionState::Completed);
        }
    }
    const auto connectedAt = pair().offererEvents.reachedAt({PeerConnectionState::Connected});
    const auto connectingAt = pair().offererEvents.reachedAt({PeerConnectionState::Connecting});
    ASSERT_TRUE(connectedAt && connectingAt);
    EXPECT_LE(*connectingAt, *connectedAt);
}

TEST_F(PeerConnectionTest, MessagesCrossBothWaysAndKeepTheirKind)
{
    ASSERT_TRUE(waitUntil([&] { return pair().allChannelsOpen() && pair().answererEvents.remoteChannelCount() >= 5; }));
    auto remote = pair().answererEvents.remoteChannel("ack");
    ASSERT_TRUE(remote);
    auto& local = pair().channels["ack"];
    const std::string binary("\x00\x01\xff\xfe{}\x00", 7);

    EXPECT_TRUE(local->sendData({"{\"type\":\"keyboard\"}", false}));
    EXPECT_TRUE(local->sendData({binary, true}));
    EXPECT_TRUE(remote->channel->sendData({"{\"ack\":1}", false}));
    EXPECT_TRUE(remote->channel->sendData({binary, true}));

    ASSERT_TRUE(waitUntil([&] { return remote->recorder->messages().size() >= 2 && pair().channelEvents["ack"]->messages().size() >= 2; }));
    const auto atAnswerer = remote->recorder->messages();
    EXPECT_EQ(atAnswerer[0].data, "{\"type\":\"keyboard\"}");
    EXPECT_FALSE(atAnswerer[0].isBinary);
    EXPECT_EQ(atAnswerer[1].data, binary);
    EXPECT_TRUE(atAnswerer[1].isBinary);
    const auto atOfferer = pair().channelEvents["ack"]->messages();
    EXPECT_EQ(atOfferer[0].data, "{\"ack\":1}");
    EXPECT_FALSE(atOfferer[0].isBinary);
    EXPECT_EQ(atOfferer[1].data, binary);
    EXPECT_TRUE(atOfferer[1].isBinary);
}

TEST_F(PeerConnectionTest, ChannelAddedAfterConnectingOpensAndCarriesMessages)
{
    ChannelRecorder events;
    auto channel = pair().offerer->createDataChannel("custom_trans_1", true, &events);
    ASSERT_TRUE(channel);
    ASSERT_TRUE(waitUntil([&] { return channel->readyState() == DataChannelState::Open; }));
    ASSERT_TRUE(waitUntil([&] { return pair().answererEvents.remoteChannel("custom_trans_1").has_value(); }));
    EXPECT_TRUE(channel->sendData({"hello", false}));
    auto remote = pair().answererEvents.remoteChannel("custom_trans_1");
    ASSERT_TRUE(waitUntil([&] { return !remote->recorder->messages().empty(); }));
    EXPECT_EQ(remote->recorder->messages()[0].data, "hello");

    channel->close();
    ASSERT_TRUE(waitUntil([&] { return channel->readyState() == DataChannelState::Closed; }));
    EXPECT_FALSE(channel->sendData({"late", false})) << "a closed channel sends nothing";
    channel->setObserver(nullptr);
}

TEST_F(PeerConnectionTest, ObserverClearedWhileMessagesArriveHearsNothingMore)
{
    ASSERT_TRUE(waitUntil([&] { return pair().answererEvents.remoteChannel("km").has_value(); }));
    auto remote = pair().answererEvents.remoteChannel("km");
    auto& local = pair().channels["km"];
    ChannelRecorder cleared;
    local->setObserver(&cleared);
    for (int i = 0; i < 200; ++i)
        remote->channel->sendData({"move " + std::to_string(i), false});
    ASSERT_TRUE(waitUntil([&] { return cleared.messages().size() >= 20; }));
    local->setObserver(nullptr); // messages are still arriving and queued
    const int callsWhenCleared = cleared.calls();

    // Delivery goes on in order: once a new observer hears a later message,
    // every earlier one has been handled, and none by the cleared observer.
    ChannelRecorder next;
    local->setObserver(&next);
    remote->channel->sendData({"last", false});
    ASSERT_TRUE(waitUntil([&] {
        auto messages = next.messages();
        return !messages.empty() && messages.back().data == "last";
    }));
    EXPECT_EQ(cleared.calls(), callsWhenCleared);
    EXPECT_LE(cleared.messages().size() + next.messages().size(), 201U);
    local->setObserver(pair().channelEvents["km"].get());
}

TEST_F(PeerConnectionTest, VideoArrivesWithFirstFrameAndItsSize)
{
    ASSERT_TRUE(waitUntil([&] { return pair().frames->count() >= 10; }));
    const auto firstFrame = pair().offererEvents.firstFrameAt();
    ASSERT_TRUE(firstFrame);
    std::printf("[ measured ] first frame %.0f ms after the answer\n", milliseconds(*firstFrame - pair().answerAppliedAt));
    EXPECT_EQ(pair().offererEvents.firstFrames(), 1);
    const auto sizes = pair().offererEvents.sizes();
    ASSERT_FALSE(sizes.empty());
    EXPECT_EQ(sizes.back(), std::make_pair(kWidth, kHeight));
    const auto frame = pair().frames->last();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width(), kWidth);
    EXPECT_EQ(frame->height(), kHeight);
    EXPECT_EQ(frame->format(), vrq::rtc::PixelFormat::I420) << "as the decoder gives it";
    for (int plane = 0; plane < frame->planeCount(); ++plane) {
        EXPECT_NE(frame->plane(plane).data, nullptr);
        EXPECT_GE(frame->plane(plane).stride, frame->planeRowBytes(plane)) << "plane " << plane;
    }
    EXPECT_EQ(frame->toRgba().size(), static_cast<std::size_t>(kWidth * kHeight * 4));
    EXPECT_EQ(pair().offererEvents.tracks(), std::make_pair(1, 1));

    // Every step of the start was recorded, the media ones in their causal order.
    const auto timeline = pair().offerer->startTimeline();
    for (const auto& step : {timeline.answerApplied, timeline.iceConnected, timeline.dtlsConnected, timeline.firstRtpPacket,
                             timeline.firstKeyFrame, timeline.firstFrameDecoded, timeline.firstFrameDelivered}) {
        ASSERT_TRUE(step);
        EXPECT_LE(timeline.answerGiven, step);
    }
    EXPECT_LE(timeline.firstRtpPacket, timeline.firstKeyFrame);
    EXPECT_LE(timeline.firstKeyFrame, timeline.firstFrameDecoded);
    EXPECT_LE(timeline.firstFrameDecoded, timeline.firstFrameDelivered);
}

TEST_F(PeerConnectionTest, SeiTextFromTheAnswererArrivesIntact)
{
    const std::string expected = seiText();
    ASSERT_TRUE(waitUntil([&] {
        const auto payloads = pair().offererEvents.sei();
        return std::count(payloads.begin(), payloads.end(), expected) >= 3;
    }));
}

TEST_F(PeerConnectionTest, LegacyStatisticsCarryMeasuredFigures)
{
    ASSERT_TRUE(waitUntil([&] { return pair().frames->count() >= 40; })) << "a second of video";
    Await<std::vector<vrq::LegacyStatsReport>> legacy;
    pair().offerer->legacyStatistics(legacy.callback());
    const auto reports = legacy.wait();
    ASSERT_TRUE(reports);
    const vrq::LegacyStatsReport* video = nullptr;
    const vrq::LegacyStatsReport* audio = nullptr;
    for (const auto& report : *reports) {
        EXPECT_EQ(report.type, "ssrc");
        const auto media = report.values.find("mediaType");
        ASSERT_NE(media, report.values.end());
        (media->second == "video" ? video : audio) = &report;
    }
    ASSERT_TRUE(video && audio) << reports->size() << " reports";
    for (const char* key : {"googFrameRateOutput", "packetsLost", "packetsReceived", "googNacksSent", "googTargetDelayMs",
                            "googJitterBufferMs", "googDecodeMs", "bytesReceived"})
        EXPECT_TRUE(video->values.count(key)) << key;
    for (const char* key : {"packetsLost", "googCurrentDelayMs", "googJitterBufferMs"})
        EXPECT_TRUE(audio->values.count(key)) << key;
    EXPECT_GT(std::stod(video->values.at("googFrameRateOutput")), 0.0);
    EXPECT_GT(std::stoll(video->values.at("packetsReceived")), 0);
    EXPECT_GT(std::stoll(video->values.at("bytesReceived")), 0);
    EXPECT_GT(std::stoll(audio->values.at("packetsReceived")), 0);
    EXPECT_GE(std::stoll(video->values.at("googTargetDelayMs")), 20) << "at least the jitter buffer's latency";
    EXPECT_EQ(video->values.at("googFrameWidthReceived"), std::to_string(kWidth));
    EXPECT_EQ(video->values.at("codecImplementationName"), vrq::rtc::videoDecoderName());
    EXPECT_FALSE(vrq::rtc::videoDecoderName().empty());
}

TEST_F(PeerConnectionTest, StandardStatisticsCarryPairsTracksAndInboundStreams)
{
    ASSERT_TRUE(waitUntil([&] { return pair().frames->count() >= 40; }));
    Await<vrq::StatsReport> standard;
    pair().offerer->statistics(standard.callback());
    const auto report = standard.wait();
    ASSERT_TRUE(report);
    int pairs = 0;
    const vrq::StatsEntry* videoTrack = nullptr;
    std::vector<std::string> inboundKinds;
    for (const auto& [id, entry] : *report) {
        EXPECT_EQ(entry.id, id);
        if (entry.type == "candidate-pair")
            ++pairs;
        if (entry.type == "track" && entry.kind == "video")
            videoTrack = &entry;
        if (entry.type == "inbound-rtp") {
            inboundKinds.push_back(entry.kind.value_or(""));
            EXPECT_GT(entry.values.value("packetsReceived", 0.0), 0.0) << id;
        }
    }
    EXPECT_GE(pairs, 1);
    ASSERT_TRUE(videoTrack);
    ASSERT_TRUE(videoTrack->values.contains("freezeCount"));
    ASSERT_TRUE(videoTrack->values.contains("totalFreezesDuration"));
    EXPECT_TRUE(videoTrack->values["freezeCount"].is_number());
    EXPECT_TRUE(videoTrack->values["totalFreezesDuration"].is_number());
    EXPECT_GT(videoTrack->values.value("framesPerSecond", 0.0), 0.0);
    EXPECT_EQ(videoTrack->values.value("decoderImplementation", ""), vrq::rtc::videoDecoderName());
    std::sort(inboundKinds.begin(), inboundKinds.end());
    EXPECT_EQ(inboundKinds, (std::vector<std::string>{"audio", "video"}));
}

TEST_F(PeerConnectionTest, AnswererSendsWithTheOffersPayloadTypes)
{
    EXPECT_NE(pair().answerSdp.find("a=rtpmap:102 H264/90000"), std::string::npos) << pair().answerSdp;
    EXPECT_NE(pair().answerSdp.find("a=rtpmap:111 OPUS/48000"), std::string::npos) << pair().answerSdp;
    EXPECT_NE(pair().answerSdp.find("a=candidate:"), std::string::npos) << "the answer carries its candidates";
    const auto transceivers = pair().answerer->transceivers();
    ASSERT_EQ(transceivers.size(), 2U);
    EXPECT_EQ(transceivers[0].mediaType, MediaType::Video);
    EXPECT_EQ(transceivers[1].mediaType, MediaType::Audio);
    for (const auto& transceiver : transceivers)
        EXPECT_EQ(transceiver.direction, TransceiverDirection::SendOnly);
    const auto offered = pair().offerer->transceivers();
    ASSERT_EQ(offered.size(), 2U);
    EXPECT_EQ(offered[0].direction, TransceiverDirection::RecvOnly);
}

} // namespace vrqtest::rtc
