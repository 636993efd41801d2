#include "vrq/monitor/VRQSDKReport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

using nlohmann::json;

namespace {

vrq::LegacyStatsReport ssrc(std::map<std::string, std::string> values)
{
    return {"ssrc_1_recv", "ssrc", std::move(values)};
}

vrq::LegacyStatsReport videoBytes(std::uint64_t bytes)
{
    return ssrc({{"mediaType", "video"}, {"bytesReceived", std::to_string(bytes)}});
}

vrq::StatsEntry candidatePair(json values)
{
    return {"", "candidate-pair", std::nullopt, std::move(values)};
}

struct BitrateCase {
    const char* name;
    std::vector<std::pair<std::uint64_t, std::int64_t>> samples; // bytes received, time in ms
    std::uint64_t expectedKb;
};

class VRQSDKReportBitrateTest : public ::testing::TestWithParam<BitrateCase> {};

TEST_P(VRQSDKReportBitrateTest, AfterSamples)
{
    VRQSDKReport report;
    for (const auto& [bytes, timeMs] : GetParam().samples)
        report.updateWithRtcInfo({videoBytes(bytes)}, timeMs);
    EXPECT_EQ(report.videoBitrateKb(), GetParam().expectedKb);
}

INSTANTIATE_TEST_SUITE_P(
    Samples, VRQSDKReportBitrateTest,
    ::testing::Values(BitrateCase{"FirstSampleHasNoRate", {{5'000'000, 1'000}}, 0},
                      BitrateCase{"BitsPerMillisecond", {{5'000'000, 1'000}, {6'250'000, 2'000}}, 10000},
                      BitrateCase{"IntegerDivision", {{1'000, 1'000}, {1'999, 1'003}}, 2664},
                      BitrateCase{"ZeroElapsedGivesZero", {{1'000, 1'000}, {1'999, 1'003}, {9'999, 1'003}}, 0},
                      BitrateCase{"BackwardsCounterKeepsTheRate", {{5'000'000, 1'000}, {6'250'000, 2'000}, {100, 3'000}}, 10000},
                      BitrateCase{"BackwardsCounterRebases",
                                  {{5'000'000, 1'000}, {6'250'000, 2'000}, {100, 3'000}, {125'100, 4'000}}, 1000},
                      BitrateCase{"ZeroBytesAreNoBase", {{0, 1'000}, {1'000'000, 2'000}}, 0}),
    [](const ::testing::TestParamInfo<BitrateCase>& param) { return std::string(param.param.name); });

class VRQSDKReportTest : public ::testing::Test {
protected:
    VRQSDKReport m_report;
};

TEST_F(VRQSDKReportTest, VideoAndAudioValuesAreParsedFromText)
{
    m_report.updateWithRtcInfo({ssrc({{"mediaType", "video"},
                                      {"googFrameRateOutput", "29.97"},
                                      {"packetsLost", "-1"},
                                      {"packetsReceived", " 1234abc"},
                                      {"googNacksSent", "+7"},
                                      {"googTargetDelayMs", "99999999999999999999"},
                                      {"googJitterBufferMs", "x"}}),
                                ssrc({{"mediaType", "audio"},
                                      {"packetsLost", "3"},
                                      {"googCurrentDelayMs", "80"},
                                      {"googJitterBufferMs", "40"}})},
                               1'000);
    EXPECT_EQ(m_report.fps(), 29.97f);
    EXPECT_EQ(m_report.videoPacketLost(), std::numeric_limits<std::uint64_t>::max()); // -1 taken as unsigned
    EXPECT_EQ(m_report.videoPacketRecv(), 1234u);
    EXPECT_EQ(m_report.videoNack(), 7u);
    EXPECT_EQ(m_report.videoDelay(), static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    EXPECT_EQ(m_report.videoJitterBuffer(), 0u);
    EXPECT_EQ(m_report.videoDecodeMS(), 0u); // missing reads as "0"
    EXPECT_EQ(m_report.audioLost(), 3u);
    EXPECT_EQ(m_report.audioDelay(), 80u);
    EXPECT_EQ(m_report.audioJitterBuffer(), 40u);
}

TEST_F(VRQSDKReportTest, OnlySsrcReportsWithAKnownMediaTypeCountAndTheLastWins)
{
    m_report.updateWithRtcInfo({ssrc({{"packetsLost", "5"}, {"googFrameRateOutput", "30"}}),
                                {"bwe", "VideoBwe", {{"mediaType", "video"}, {"packetsLost", "6"}}},
                                ssrc({{"mediaType", "data"}, {"packetsLost", "7"}})},
                               1'000);
    EXPECT_EQ(m_report.videoPacketLost(), 0u);
    EXPECT_EQ(m_report.audioLost(), 0u);
    EXPECT_EQ(m_report.fps(), 0.0f);
    m_report.updateWithRtcInfo({ssrc({{"mediaType", "video"}, {"packetsLost", "5"}, {"googDecodeMs", "4"}}),
                                ssrc({{"mediaType", "video"}, {"packetsLost", "6"}})},
                               1'000);
    EXPECT_EQ(m_report.videoPacketLost(), 6u);
    EXPECT_EQ(m_report.videoDecodeMS(), 0u);
}

TEST_F(VRQSDKReportTest, LastCandidatePairInKeyOrderSetsRawRtt)
{
    // 0.015 s is 15 ms in single precision; double arithmetic would give 14.
    m_report.updateWithRtcStats({{"b", candidatePair({{"currentRoundTripTime", 0.015}})},
                                 {"a", candidatePair(json::object())}});
    EXPECT_EQ(m_report.rawRttMS(), 15u);
    m_report.updateWithRtcStats({{"a", candidatePair({{"currentRoundTripTime", 0.015}})},
                                 {"b", candidatePair({{"state", "succeeded"}})}});
    EXPECT_EQ(m_report.rawRttMS(), 0u);
    m_report.updateWithRtcStats({{"a", candidatePair({{"currentRoundTripTime", -0.5}})}});
    EXPECT_EQ(m_report.rawRttMS(), 0u);
}

TEST_F(VRQSDKReportTest, FreezesComeFromTheVideoTrackOnly)
{
    const json freezes = {{"freezeCount", 3}, {"totalFreezesDuration", 1.25}};
    m_report.updateWithRtcStats({{"t1", {"t1", "track", "audio", {{"freezeCount", 9}}}},
                                 {"t2", {"t2", "track", std::nullopt, {{"freezeCount", 9}}}},
                                 {"t3", {"t3", "inbound-rtp", "video", {{"freezeCount", 9}}}}});
    EXPECT_EQ(m_report.videoFreezeCount(), 0.0f);
    m_report.updateWithRtcStats({{"t0", {"t0", "track", "video", freezes}}});
    EXPECT_EQ(m_report.videoFreezeCount(), 3.0f);
    EXPECT_EQ(m_report.videoFreezeDuration(), 1.25f);
}

TEST_F(VRQSDKReportTest, RemoteInfosResetWhatIsMissingAndNeverConvertText)
{
    m_report.updateWithRemoteInfos({{"cpu_usage", 0.5}, {"gpu_usage", "31%"}, {"screen_width", 1920}, {"screen_height", 1080}});
    EXPECT_EQ(m_report.cpuUsage(), 0.5f);
    EXPECT_EQ(m_report.gpuUsage(), "31%");
    EXPECT_EQ(m_report.screenWidth(), 1920u);
    EXPECT_EQ(m_report.screenHeight(), 1080u);

    m_report.updateWithRemoteInfos({{"screen_width", "1280"}, {"gpu_usage", 40}});
    EXPECT_EQ(m_report.cpuUsage(), 0.0f);
    EXPECT_EQ(m_report.gpuUsage(), "");
    EXPECT_EQ(m_report.screenWidth(), 0u);
    EXPECT_EQ(m_report.screenHeight(), 0u);
}

TEST_F(VRQSDKReportTest, DescriptionOfAFreshRecord)
{
    EXPECT_EQ(m_report.description(), "          Resolution 0x0\n"
                                       "            CpuUsage 0.000000\n"
                                       "            GpuUsage \n"
                                       "            ServerIP \n"
                                       "              Region \n"
                                       "          VideoDelay 0\n"
                                       "     VideoPacketLost 0\n"
                                       "   VideoJitterBuffer 0\n"
                                       "           VideoNack 0\n"
                                       "                 FPS 0.000000\n"
                                       "          AudioDelay 0\n"
                                       "           AudioLost 0\n"
                                       "   AudioJitterBuffer 0\n");
}

TEST_F(VRQSDKReportTest, DescriptionFormatsValues)
{
    m_report.setScreenWidth(1920);
    m_report.setScreenHeight(1080);
    m_report.setFps(29.97f);
    m_report.setServerIP("127.0.0.2");
    m_report.setAudioJitterBuffer(std::numeric_limits<std::uint64_t>::max());
    const std::string text = m_report.description();
    for (const char* line : {"          Resolution 1920x1080\n", "                 FPS 29.969999\n",
                             "            ServerIP 127.0.0.2\n", "   AudioJitterBuffer 18446744073709551615\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST_F(VRQSDKReportTest, CurrentReportHasTheTwentyTwoEntries)
{
    m_report.setFps(29.97f);
    m_report.setVideoNack(4);
    m_report.setRttMS(12);
    m_report.setVideoFreezeDuration(0.1f);
    const json report = m_report.currentReport();

    std::set<std::string> keys;
    for (const auto& [key, value] : report.items())
        keys.insert(key);
    const std::set<std::string> expected = {
        "RequestID", "CpuUsage", "GpuUsage", "ServerIP", "Region", "DeviceID", "FPS", "RTT",
        "Width", "Height", "VideoDelay", "VideoJitterBuffer", "VideoDecodeMS", "VideoPacketLost",
        "VideoPacketRecv", "VideoPacketNack", "VideoBitrateKb", "VideoFreezeCount",
        "VideoFreezeDuration", "AudioDelay", "AudioLost", "AudioJitterBuffer"};
    EXPECT_EQ(keys, expected);

    EXPECT_EQ(report["FPS"].dump(), "29.97");
    EXPECT_EQ(report["VideoFreezeDuration"].dump(), "0.1");
    EXPECT_TRUE(report["VideoPacketNack"].is_number_unsigned());
    EXPECT_EQ(report["VideoPacketNack"], 4);
    EXPECT_TRUE(report["RTT"].is_number_unsigned());
    EXPECT_EQ(report["DeviceID"], ""); // not set yet
    EXPECT_EQ(report["RequestID"], "");
}

// Writers and readers on several threads at once, as the statistics thread,
// the main thread and the report queue do; ThreadSanitizer checks the rest.
TEST_F(VRQSDKReportTest, ConcurrentWritersAndReaders)
{
    constexpr int rounds = 300;
    std::atomic<bool> readerSawBadReport = false;
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int i = 1; i <= rounds; ++i)
            m_report.updateWithRtcInfo({videoBytes(static_cast<std::uint64_t>(i) * 125'000)}, i * 100);
    });
    threads.emplace_back([&] {
        for (int i = 0; i < rounds; ++i) {
            m_report.setServerIP("10.0.0." + std::to_string(i % 2));
            m_report.setToken("token");
            m_report.setRttMS(static_cast<std::uint64_t>(i));
            m_report.updateWithRemoteInfos({{"cpu_usage", 0.5}, {"gpu_usage", "50%"}});
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < rounds; ++i) {
            if (m_report.currentReport().size() != 22 || m_report.description().empty())
                readerSawBadReport = true;
        }
    });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(readerSawBadReport);
    EXPECT_EQ(m_report.videoBitrateKb(), 10000u);
    EXPECT_EQ(m_report.serverIP(), "10.0.0.1");
    EXPECT_EQ(m_report.rttMS(), static_cast<std::uint64_t>(rounds - 1));
}

} // namespace
