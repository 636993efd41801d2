#include "SessionStatistics.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

std::string gameStatusName(VRQGameStatus status)
{
    switch (status) {
    case VRQGameStatusNone:
        return "none";
    case VRQGameStatusInited:
        return "inited";
    case VRQGameStatusPlaying:
        return "playing";
    case VRQGameStatusReconnecting:
        return "reconnecting";
    case VRQGameStatusStopped:
        return "stopped";
    }
    return std::to_string(static_cast<std::uint64_t>(status));
}

nlohmann::json sampleStatistics(const VRQGamePlayer& player)
{
    const VRQSDKReport& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    const auto view = player.videoView();
    const vrq::Size size = view ? view->videoSize() : vrq::Size{};
    char frame[32];
    std::snprintf(frame, sizeof frame, "%.0fx%.0f", size.width, size.height);
    return {{"fps", report.fps()},
            {"rtt_ms", report.rttMS()},
            {"bitrate_kbps", report.videoBitrateKb()},
            {"packets_lost", report.videoPacketLost()},
            {"packets_received", report.videoPacketRecv()},
            {"frame", frame},
            {"frames_decoded", view ? view->framesReceived() : 0},
            {"status", gameStatusName(player.gameStatus())},
            {"sei_total_ms", report.totalTransMS()},
            {"decode_ms", report.videoDecodeMS()},
            {"freeze_count", report.videoFreezeCount()},
            {"freeze_ms", report.videoFreezeDuration()},
            {"report", player.currentStatisReport()},
            {"report_text", report.description()}};
}

std::vector<std::string> statisticsLines(const nlohmann::json& sample)
{
    std::vector<std::string> lines;
    std::istringstream text(sample.value("report_text", std::string()));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
    char line[160];
    std::snprintf(line, sizeof line, "%.1f fps, %s", sample.value("fps", 0.0), sample.value("frame", std::string()).c_str());
    lines.emplace_back(line);
    std::snprintf(line, sizeof line, "RTT %llu ms, SEI total transmission %llu ms", sample.value("rtt_ms", 0ULL),
                  sample.value("sei_total_ms", 0ULL));
    lines.emplace_back(line);
    std::snprintf(line, sizeof line, "decode %llu ms, %llu packets lost, %.0f freezes (%.0f ms)",
                  sample.value("decode_ms", 0ULL), sample.value("packets_lost", 0ULL), sample.value("freeze_count", 0.0),
                  sample.value("freeze_ms", 0.0));
    lines.emplace_back(line);
    return lines;
}

std::string describeStatistics(const nlohmann::json& sample)
{
    char line[256];
    std::snprintf(line, sizeof line, "%.1f fps, rtt %llu ms, %llu kbit/s, %llu packets lost, frame %s, %s",
                  sample.value("fps", 0.0), sample.value("rtt_ms", 0ULL), sample.value("bitrate_kbps", 0ULL),
                  sample.value("packets_lost", 0ULL),
                  sample.value("frame", std::string()).c_str(), sample.value("status", std::string()).c_str());
    return line;
}
