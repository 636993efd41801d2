#include "vrq/monitor/VRQSDKReport.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQLayoutHelpers.h"

using nlohmann::json;

namespace {

// Legacy values are text; a missing one reads as "0".
std::string_view textValue(const std::map<std::string, std::string>& values, const std::string& key)
{
    const auto it = values.find(key);
    return it == values.end() ? std::string_view("0") : std::string_view(it->second);
}

// The leading integer of a text (white space skipped, saturating on
// overflow, 0 when there is none), taken as unsigned the way a C assignment
// would: "-1" becomes 2^64 - 1.
std::uint64_t integerValue(const std::map<std::string, std::string>& values, const std::string& key)
{
    std::string_view text = textValue(values, key);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r\v\f"), text.size()));
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-')
            return 0;
    }
    std::int64_t value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc::result_out_of_range)
        value = text.front() == '-' ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    return static_cast<std::uint64_t>(value);
}

float statFloat(const json& values, std::string_view key)
{
    return static_cast<float>(vrq_floatForKey(values, key, 0.0));
}

// Seconds to whole milliseconds, in single precision as the figure is
// reported; negative and NaN give 0 instead of an undefined conversion.
std::uint64_t millisecondsFromSeconds(float seconds)
{
    const float milliseconds = seconds * 1000.0f;
    if (!(milliseconds > 0))
        return 0;
    if (milliseconds >= 0x1p64f)
        return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(milliseconds);
}

std::string fixedSix(float value)
{
    char text[64];
    const auto written = std::to_chars(text, text + sizeof text, static_cast<double>(value), std::chars_format::fixed, 6);
    return std::string(text, written.ptr);
}

void appendLine(std::string& text, std::string_view label, std::string_view value)
{
    constexpr std::size_t labelWidth = 20;
    text.append(labelWidth - std::min(label.size(), labelWidth), ' ').append(label);
    text.append(1, ' ').append(value).append(1, '\n');
}

} // namespace

void VRQSDKReport::updateWithRtcInfo(const std::vector<vrq::LegacyStatsReport>& reports)
{
    updateWithRtcInfo(reports, vrq::nowMs());
}

void VRQSDKReport::updateWithRtcInfo(const std::vector<vrq::LegacyStatsReport>& reports, std::int64_t sampleTimeMs)
{
    for (const vrq::LegacyStatsReport& report : reports) {
        if (report.type != "ssrc")
            continue;
        const auto mediaType = report.values.find("mediaType");
        if (mediaType == report.values.end())
            continue;
        if (mediaType->second == "video")
            applyVideo(report.values, sampleTimeMs);
        else if (mediaType->second == "audio")
            applyAudio(report.values);
    }
}

void VRQSDKReport::applyVideo(const Values& values, std::int64_t sampleTimeMs)
{
    m_fps = vrq_floatValue(textValue(values, "googFrameRateOutput"));
    m_videoPacketLost = integerValue(values, "packetsLost");
    m_videoPacketRecv = integerValue(values, "packetsReceived");
    m_videoNack = integerValue(values, "googNacksSent");
    m_videoDelay = integerValue(values, "googTargetDelayMs");
    m_videoJitterBuffer = integerValue(values, "googJitterBufferMs");
    m_videoDecodeMS = integerValue(values, "googDecodeMs");
    updateBitrate(integerValue(values, "bytesReceived"), sampleTimeMs);
}

void VRQSDKReport::applyAudio(const Values& values)
{
    m_audioLost = integerValue(values, "packetsLost");
    m_audioDelay = integerValue(values, "googCurrentDelayMs");
    m_audioJitterBuffer = integerValue(values, "googJitterBufferMs");
}

void VRQSDKReport::updateBitrate(std::uint64_t totalBytes, std::int64_t sampleTimeMs)
{
    std::lock_guard lock(m_sampleMutex);
    // A byte counter that went backwards belongs to a new connection: it only
    // becomes the new base. Bits per millisecond are kbit/s; the unsigned
    // arithmetic is deliberate, so a clock that stepped back gives about 0.
    if (m_lastTotalBytesReceived != 0 && m_lastTotalBytesReceived <= totalBytes) {
        const auto elapsed = static_cast<std::uint64_t>(sampleTimeMs) - static_cast<std::uint64_t>(m_lastTotalBytesTimeMs);
        m_videoBitrateKb = elapsed == 0 ? 0 : (totalBytes - m_lastTotalBytesReceived) * 8 / elapsed;
    }
    m_lastTotalBytesReceived = totalBytes;
    m_lastTotalBytesTimeMs = sampleTimeMs;
}

void VRQSDKReport::updateWithRtcStats(const vrq::StatsReport& stats)
{
    for (const auto& [id, stat] : stats) {
        // Every pair overwrites the figure, even one without a round trip.
        if (stat.type == "candidate-pair") {
            m_rawRttMS = millisecondsFromSeconds(statFloat(stat.values, "currentRoundTripTime"));
        } else if (stat.type == "track" && stat.kind == "video") {
            m_videoFreezeCount = statFloat(stat.values, "freezeCount");
            m_videoFreezeDuration = statFloat(stat.values, "totalFreezesDuration");
        }
    }
}

void VRQSDKReport::updateWithRemoteInfos(const json& infos)
{
    m_cpuUsage = static_cast<float>(vrq_floatForKey(infos, "cpu_usage", 0.0));
    setGpuUsage(vrq_stringForKey(infos, "gpu_usage", "").value_or(""));
    m_screenHeight = static_cast<std::uint64_t>(vrq_longForKey(infos, "screen_height", 0));
    m_screenWidth = static_cast<std::uint64_t>(vrq_longForKey(infos, "screen_width", 0));
}

std::string VRQSDKReport::description() const
{
    std::string text;
    appendLine(text, "Resolution", std::to_string(screenWidth()) + "x" + std::to_string(screenHeight()));
    appendLine(text, "CpuUsage", fixedSix(cpuUsage()));
    appendLine(text, "GpuUsage", gpuUsage());
    appendLine(text, "ServerIP", serverIP());
    appendLine(text, "Region", region());
    appendLine(text, "VideoDelay", std::to_string(videoDelay()));
    appendLine(text, "VideoPacketLost", std::to_string(videoPacketLost()));
    appendLine(text, "VideoJitterBuffer", std::to_string(videoJitterBuffer()));
    appendLine(text, "VideoNack", std::to_string(videoNack()));
    appendLine(text, "FPS", fixedSix(fps()));
    appendLine(text, "AudioDelay", std::to_string(audioDelay()));
    appendLine(text, "AudioLost", std::to_string(audioLost()));
    appendLine(text, "AudioJitterBuffer", std::to_string(audioJitterBuffer()));
    return text;
}

json VRQSDKReport::currentReport() const
{
    // The overlay text says "VideoNack" but this dictionary has always said
    // "VideoPacketNack"; hosts read it under that name.
    return {
        {"RequestID", requestID()},
        {"CpuUsage", vrq_floatNumber(cpuUsage())},
        {"GpuUsage", gpuUsage()},
        {"ServerIP", serverIP()},
        {"Region", region()},
        {"DeviceID", deviceID()},
        {"FPS", vrq_floatNumber(fps())},
        {"RTT", rttMS()},
        {"Width", screenWidth()},
        {"Height", screenHeight()},
        {"VideoDelay", videoDelay()},
        {"VideoJitterBuffer", videoJitterBuffer()},
        {"VideoDecodeMS", videoDecodeMS()},
        {"VideoPacketLost", videoPacketLost()},
        {"VideoPacketRecv", videoPacketRecv()},
        {"VideoPacketNack", videoNack()},
        {"VideoBitrateKb", videoBitrateKb()},
        {"VideoFreezeCount", vrq_floatNumber(videoFreezeCount())},
        {"VideoFreezeDuration", vrq_floatNumber(videoFreezeDuration())},
        {"AudioDelay", audioDelay()},
        {"AudioLost", audioLost()},
        {"AudioJitterBuffer", audioJitterBuffer()},
    };
}
