// The engine's pure helpers: description edits, SEI units, H.264 profile
// parsing and the media meter's rate and freeze rules, without a network.
#include "vrq/platform/engine/RtcMediaMeter_p.h"
#include "vrq/platform/engine/RtcSdpText_p.h"
#include "vrq/platform/engine/RtcSeiMessage_p.h"
#include "vrq/platform/engine/RtcTypes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vrq::rtc {
namespace {

const std::string kOffer = "v=0\r\n"
                           "o=- 1 0 IN IP4 0.0.0.0\r\n"
                           "s=-\r\n"
                           "t=0 0\r\n"
                           "a=group:BUNDLE video0 audio1 application2\r\n"
                           "m=video 9 UDP/TLS/RTP/SAVPF 102 96\r\n"
                           "a=rtpmap:102 H264/90000\r\n"
                           "a=fmtp:102 profile-level-id=42e01f;packetization-mode=1;level-asymmetry-allowed=1\r\n"
                           "a=rtpmap:96 VP8/90000\r\n"
                           "a=fmtp:96 profile-level-id=x\r\n"
                           "a=mid:video0\r\n"
                           "m=audio 0 UDP/TLS/RTP/SAVPF 111\r\n"
                           "a=rtpmap:111 OPUS/48000/2\r\n"
                           "a=mid:audio1\r\n"
                           "m=application 0 UDP/DTLS/SCTP webrtc-datachannel\r\n"
                           "a=mid:application2\r\n";

TEST(SdpTextTest, NamesMidsAfterTheirSectionIndexEverywhere)
{
    const std::string renamed = SdpText::withIndexMids(kOffer);
    EXPECT_NE(renamed.find("a=group:BUNDLE 0 1 2\r\n"), std::string::npos) << renamed;
    EXPECT_NE(renamed.find("a=mid:0\r\n"), std::string::npos);
    EXPECT_NE(renamed.find("a=mid:1\r\n"), std::string::npos);
    EXPECT_NE(renamed.find("a=mid:2\r\n"), std::string::npos);
    EXPECT_EQ(renamed.find("video0"), std::string::npos);
    EXPECT_EQ(SdpText::mediaKinds(renamed), (std::vector<std::string>{"video", "audio", "application"}));
}

TEST(SdpTextTest, MovesProfileLevelIdLastOnlyInH264Fmtp)
{
    const std::string moved = SdpText::withProfileLevelIdLast(kOffer);
    EXPECT_NE(moved.find("a=fmtp:102 packetization-mode=1;level-asymmetry-allowed=1;profile-level-id=42e01f\r\n"), std::string::npos)
        << moved;
    EXPECT_NE(moved.find("a=fmtp:96 profile-level-id=x\r\n"), std::string::npos) << "other codecs keep their parameters";
}

TEST(SdpTextTest, FindsPayloadTypesPerMediaSection)
{
    EXPECT_EQ(SdpText::payloadType(kOffer, "video", "h264"), 102);
    EXPECT_EQ(SdpText::payloadType(kOffer, "video", "VP8"), 96);
    EXPECT_EQ(SdpText::payloadType(kOffer, "audio", "OPUS"), 111);
    EXPECT_EQ(SdpText::payloadType(kOffer, "audio", "H264"), std::nullopt);
    EXPECT_EQ(SdpText::payloadType("", "video", "H264"), std::nullopt);
}

TEST(SdpTextTest, TellsDescriptionsFromOtherText)
{
    EXPECT_TRUE(SdpText::isWellFormed(kOffer));
    EXPECT_TRUE(SdpText::isWellFormed("v=0\no=- 1 0 IN IP4 0.0.0.0\ns=-\n"));
    EXPECT_FALSE(SdpText::isWellFormed(""));
    EXPECT_FALSE(SdpText::isWellFormed("hello"));
    EXPECT_FALSE(SdpText::isWellFormed("v=0\r\ns=-\r\no=- 1 0 IN IP4 0.0.0.0\r\n"));
    EXPECT_FALSE(SdpText::isWellFormed("v=0\r\no=- 1 0 IN IP4 0.0.0.0\r\ns=-\r\nnot a line\r\n"));
    EXPECT_FALSE(SdpText::isWellFormed("v=0\r\no=- 1 0 IN IP4 0.0.0.0\r\ns=-\r\nA=upper\r\n"));
}

std::vector<std::uint8_t> bytes(std::initializer_list<int> values)
{
    std::vector<std::uint8_t> result;
    for (int value : values)
        result.push_back(static_cast<std::uint8_t>(value));
    return result;
}

TEST(SeiMessageTest, WritesAUserDataUnregisteredUnitByteForByte)
{
    SeiMessage::Uuid uuid{};
    for (std::size_t i = 0; i < uuid.size(); ++i)
        uuid[i] = static_cast<std::uint8_t>(0x10 + i);
    const auto nal = SeiMessage::userDataUnregistered(uuid, "ab");
    std::vector<std::uint8_t> expected = bytes({0x00, 0x00, 0x00, 0x01, 0x06, 0x05, 18});
    expected.insert(expected.end(), uuid.begin(), uuid.end());
    expected.push_back('a');
    expected.push_back('b');
    expected.push_back(0x80);
    EXPECT_EQ(nal, expected);
}

TEST(SeiMessageTest, CodesLongSizesWithFfBytes)
{
    const auto nal = SeiMessage::userDataUnregistered(SeiMessage::engineUuid(), std::string(300 - 16, 'x'));
    // 300 = 255 + 45.
    ASSERT_GE(nal.size(), 8U);
    EXPECT_EQ(nal[5], 0x05);
    EXPECT_EQ(nal[6], 0xFF);
    EXPECT_EQ(nal[7], 45);
    EXPECT_EQ(nal.size(), 4U + 1U + 1U + 2U + 300U + 1U);
}

TEST(SeiMessageTest, PreventsStartCodeEmulation)
{
    EXPECT_EQ(SeiMessage::withEmulationPrevention(bytes({0, 0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4})),
              bytes({0, 0, 3, 0, 0, 3, 0, 1, 0, 0, 3, 2, 0, 0, 3, 3, 0, 0, 4}));
    EXPECT_EQ(SeiMessage::withEmulationPrevention(bytes({0, 0})), bytes({0, 0}));
    // No start code may appear after the header, whatever the payload.
    const auto nal = SeiMessage::userDataUnregistered(SeiMessage::engineUuid(), std::string("\0\0\1\0\0\0", 6));
    for (std::size_t i = 5; i + 2 < nal.size(); ++i)
        EXPECT_FALSE(nal[i] == 0 && nal[i + 1] == 0 && nal[i + 2] <= 3 && nal[i + 2] != 3) << "at " << i;
}

TEST(H264ProfileLevelIdTest, ReadsProfilesAndLevelsOfRfc6184)
{
    struct Case {
        const char* hex;
        H264ProfileLevelId::Profile profile;
        int level;
    };
    for (const Case& c : {Case{"42e01f", H264ProfileLevelId::ConstrainedBaseline, 31}, Case{"42E01F", H264ProfileLevelId::ConstrainedBaseline, 31},
                          Case{"4d001f", H264ProfileLevelId::Main, 31}, Case{"4d801f", H264ProfileLevelId::ConstrainedBaseline, 31},
                          Case{"42001f", H264ProfileLevelId::Baseline, 31}, Case{"640c34", H264ProfileLevelId::ConstrainedHigh, 52},
                          Case{"640028", H264ProfileLevelId::High, 40}, Case{"f4001e", H264ProfileLevelId::PredictiveHigh444, 30},
                          Case{"42f00b", H264ProfileLevelId::ConstrainedBaseline, 0}, Case{"640009", H264ProfileLevelId::High, 0}}) {
        const auto id = H264ProfileLevelId::fromHexString(c.hex);
        ASSERT_TRUE(id) << c.hex;
        EXPECT_EQ(id->profile, c.profile) << c.hex;
        EXPECT_EQ(id->level, c.level) << c.hex;
    }
    for (const char* bad : {"", "42e01", "42e01f;", "42e01f;packetization-mode=1", "zze01f", "42e0ff", "58c01f0"})
        EXPECT_FALSE(H264ProfileLevelId::fromHexString(bad)) << bad;
}

class MediaMeterTest : public ::testing::Test {
protected:
    MediaMeter::Clock::time_point at(int ms) const { return m_start + std::chrono::milliseconds(ms); }
    void framesEvery(int intervalMs, int fromMs, int toMs)
    {
        for (int t = fromMs; t <= toMs; t += intervalMs)
            m_meter.frameDecoded(at(t));
    }

    MediaMeter m_meter;
    MediaMeter::Clock::time_point m_start = MediaMeter::Clock::now();
};

TEST_F(MediaMeterTest, RateCountsTheLastSecondOnly)
{
    framesEvery(33, 0, 2000);
    EXPECT_NEAR(m_meter.snapshot(at(2000)).framesPerSecond, 30.0, 1.0);
    EXPECT_EQ(m_meter.snapshot(at(3500)).framesPerSecond, 0.0) << "a stopped stream has no rate";
    EXPECT_EQ(m_meter.snapshot(at(2000)).framesDecoded, 61U);
}

TEST_F(MediaMeterTest, FreezesFollowTheW3cRule)
{
    framesEvery(33, 0, 990); // average interval 33 ms: a freeze is a gap over 183 ms
    m_meter.frameDecoded(at(990 + 180));
    EXPECT_EQ(m_meter.snapshot(at(1200)).freezeCount, 0U);
    m_meter.frameDecoded(at(1170 + 400));
    framesEvery(33, 1603, 2000);
    const auto snapshot = m_meter.snapshot(at(2000));
    EXPECT_EQ(snapshot.freezeCount, 1U);
    EXPECT_NEAR(snapshot.totalFreezesSeconds, 0.4, 1e-6);
}

TEST_F(MediaMeterTest, SlowStreamsFreezeOnlyPastThreeIntervals)
{
    framesEvery(200, 0, 2000); // 5 fps: the threshold is 600 ms, not 350 ms
    m_meter.frameDecoded(at(2000 + 500));
    EXPECT_EQ(m_meter.snapshot(at(2500)).freezeCount, 0U);
    m_meter.frameDecoded(at(2500 + 700));
    EXPECT_EQ(m_meter.snapshot(at(3200)).freezeCount, 1U);
}

TEST_F(MediaMeterTest, PairsDecoderAndJitterBufferPassages)
{
    m_meter.decoderInput(1000, at(0));
    m_meter.decoderInput(2000, at(10));
    m_meter.decoderOutput(2000, at(14));
    m_meter.decoderOutput(1000, at(6));
    m_meter.decoderOutput(3000, at(20)); // never entered: ignored
    m_meter.jitterBufferInput(65535, at(0));
    m_meter.jitterBufferInput(0, at(5));
    m_meter.jitterBufferOutput(65535, at(20));
    m_meter.jitterBufferOutput(0, at(25));
    m_meter.jitterBufferOutput(0, at(99)); // already left: ignored
    const auto snapshot = m_meter.snapshot(at(100));
    EXPECT_NEAR(snapshot.averageDecodeMs, 5.0, 1e-6);
    EXPECT_NEAR(snapshot.totalDecodeSeconds, 0.010, 1e-9);
    EXPECT_EQ(snapshot.jitterBufferEmitted, 2U);
    EXPECT_NEAR(snapshot.totalJitterBufferDelaySeconds, 0.040, 1e-9);
    EXPECT_NEAR(snapshot.jitterBufferDelayMs, 20.0, 1e-6);
}

} // namespace
} // namespace vrq::rtc
