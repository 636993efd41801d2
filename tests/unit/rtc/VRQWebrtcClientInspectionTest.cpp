#include "vrq/log/VRQLogManager.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

std::string sdpOf(std::initializer_list<const char*> lines)
{
    std::string sdp;
    for (const char* line : lines)
        sdp += std::string(line) + "\r\n";
    return sdp;
}

struct H264Info {
    std::string profile;
    int payloadType = -1;
};

H264Info inspect(const std::string& sdp)
{
    H264Info info;
    VRQWebrtClient::h264InfoFromSdp(sdp, info.profile, info.payloadType);
    return info;
}

TEST(VRQWebrtcClientInspectionTest, TheLastConstrainedBaselinePayloadTypeWins)
{
    const auto info = inspect(sdpOf({
        "m=video 9 UDP/TLS/RTP/SAVPF 96 102 125",
        "a=rtpmap:96 H264/90000",
        "a=fmtp:96 packetization-mode=1;profile-level-id=42e01f",
        "a=rtpmap:102 H264/90000",
        "a=fmtp:102 packetization-mode=1;profile-level-id=640c1f", // high: not taken
        "a=rtpmap:125 H264/90000",
        "a=fmtp:125 level-asymmetry-allowed=1;packetization-mode=0;profile-level-id=42e01f",
    }));
    EXPECT_EQ(info.payloadType, 125);
    EXPECT_EQ(info.profile, "level-asymmetry-allowed=1;packetization-mode=0;profile-level-id=42e01f");
}

TEST(VRQWebrtcClientInspectionTest, FmtpBeforeItsRtpmapAndOtherCodecsAreNotTaken)
{
    const auto info = inspect(sdpOf({
        "a=fmtp:96 profile-level-id=42e01f",
        "a=rtpmap:96 H264/90000",
        "a=rtpmap:97 VP8/90000",
        "a=fmtp:97 profile-level-id=42e01f",
    }));
    EXPECT_EQ(info.payloadType, 0);
    EXPECT_EQ(info.profile, "");
    EXPECT_EQ(inspect("").payloadType, 0);
    EXPECT_EQ(inspect(sdpOf({"a=rtpmap:99999999999 H264/90000", "a=fmtp:99999999999 profile-level-id=42e01f"})).payloadType,
              0);
}

TEST(VRQWebrtcClientInspectionTest, PlanBIsRecognisedByItsMidNames)
{
    EXPECT_TRUE(VRQWebrtClient::isPlanBSdp(sdpOf({"a=mid:video"})));
    EXPECT_TRUE(VRQWebrtClient::isPlanBSdp(sdpOf({"a=mid:audio"})));
    EXPECT_TRUE(VRQWebrtClient::isPlanBSdp(sdpOf({"a=mid:data"})));
    EXPECT_FALSE(VRQWebrtClient::isPlanBSdp(sdpOf({"a=mid:0", "a=mid:1", "a=mid:2"})));
}

class SeiTest : public ::testing::Test {
protected:
    void SetUp() override { report.setTotalTransMS(0); }
    VRQSDKReport& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
};

TEST_F(SeiTest, ADetectionTextLosesItsFirstThreeCharactersWhateverTheyAre)
{
    const std::int64_t base = vrq::nowMs() - 500;
    const std::string json = "{\"rtt_detect\":[{\"base\":" + std::to_string(base)
                             + ",\"id\":\"cli\",\"s\":300},{\"id\":\"srv\",\"r\":310,\"s\":330}]}";
    // A three-character prefix of multi-byte characters.
    const std::string text = "\xC3\xA9\xC3\xA9\xE2\x82\xAC" + json;
    VRQWebrtClient::onSEIData(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    // Evaluated on a background queue.
    for (int i = 0; i < 200 && report.totalTransMS() == 0; ++i)
        std::this_thread::sleep_for(5ms);
    const auto total = static_cast<std::int64_t>(report.totalTransMS());
    EXPECT_GE(total, 200 - 20 - 5);
    EXPECT_LE(total, 200 - 20 + 1000);
}

TEST_F(SeiTest, OtherPayloadsAndMalformedDetectionsChangeNothing)
{
    for (const std::string& text : {std::string("x264 - core 164 - H.264/MPEG-4 AVC codec"), std::string("abc{rtt_detect"),
                                   std::string("ab"), std::string("\xff\xfe\xfd rtt_detect \x00", 16)}) {
        VRQWebrtClient::onSEIData(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
    VRQWebrtClient::onSEIData(nullptr, 0);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(report.totalTransMS(), 0u);
}

} // namespace
