// The kit over a lossy link, against a clean link in the same run. The
// reference server runs in-process on 127.0.0.74 and, per setting, loses and
// delays its video packets on the wire side of its retransmission buffer
// (seeded, so runs compare); the kit (VRQGamePlayer) asks for lost packets
// again. Each setting plays one session, measured for a fixed time once it
// has settled:
//   - fps held: frames reaching the kit's video view per second;
//   - freezes per minute and the longest freeze: gaps between frames over
//     max(3 x the average frame interval, that average + 150 ms), the average
//     taken over the last 30 gaps that were not freezes;
//   - frames decoded: frames at the view / frames the server put on the wire;
//   - NACKs: the kit's own count (its statistics report);
//   - key-frame requests: the PLIs and FIRs the server's statistics count
//     (its outbound-rtp "pliCount" and "firCount"; the kit's own count is not
//     reachable through the player).
// Usage: vrq-bench-loss [SECONDS per setting, default 30]
#include "BenchFigures.h"
#include "BenchPlayerHost.h"
#include "ReferenceServer.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kHost = "127.0.0.74";
constexpr auto kSettle = 3s;
constexpr std::uint32_t kSeed = 2024;

struct Setting {
    const char* name;
    vrqserver::LinkConditions link;
};

struct Figures {
    double seconds = 0;
    double fps = 0;
    double freezesPerMinute = 0;
    double longestFreezeMs = 0;
    double longestGapMs = 0;
    double framesDecoded = 0; // share of the frames sent
    std::uint64_t framesSent = 0;
    std::uint64_t framesShown = 0;
    double nacks = 0;
    double keyFrameRequests = 0;
    std::uint64_t packetsLost = 0;
    std::uint64_t retransmissions = 0;
};

// Times at which frames reached the view; filled on the engine's thread.
class FrameTimes {
public:
    void add(Clock::time_point at)
    {
        std::lock_guard lock(m_mutex);
        if (m_recording)
            m_times.push_back(at);
    }
    void start()
    {
        std::lock_guard lock(m_mutex);
        m_times.clear();
        m_recording = true;
    }
    std::vector<Clock::time_point> stop()
    {
        std::lock_guard lock(m_mutex);
        m_recording = false;
        return std::move(m_times);
    }

private:
    std::mutex m_mutex;
    std::vector<Clock::time_point> m_times;
    bool m_recording = false;
};

void pause(std::chrono::milliseconds duration)
{
    vrq::runMainLoopUntil([] { return false; }, duration);
}

void freezes(const std::vector<Clock::time_point>& times, Figures& figures)
{
    std::deque<double> recent; // the last gaps that were not freezes, ms
    double recentSum = 0;
    int count = 0;
    for (std::size_t i = 1; i < times.size(); ++i) {
        const double gap = msBetween(times[i - 1], times[i]);
        figures.longestGapMs = std::max(figures.longestGapMs, gap);
        if (!recent.empty()) {
            const double average = recentSum / static_cast<double>(recent.size());
            if (gap > std::max(3 * average, average + 150)) {
                ++count;
                figures.longestFreezeMs = std::max(figures.longestFreezeMs, gap);
                continue;
            }
        }
        recent.push_back(gap);
        recentSum += gap;
        if (recent.size() > 30) {
            recentSum -= recent.front();
            recent.pop_front();
        }
    }
    figures.freezesPerMinute = figures.seconds > 0 ? count * 60.0 / figures.seconds : 0;
}

// NACKs and key-frame requests the server received, from its outbound video statistics.
std::optional<std::pair<double, double>> serverFeedback(const vrqserver::GameSession& session)
{
    auto result = std::make_shared<std::optional<vrq::StatsReport>>();
    auto mutex = std::make_shared<std::mutex>();
    session.statistics([result, mutex](vrq::StatsReport report) {
        std::lock_guard lock(*mutex);
        *result = std::move(report);
    });
    vrq::runMainLoopUntil(
        [&] {
            std::lock_guard lock(*mutex);
            return result->has_value();
        },
        5s);
    std::lock_guard lock(*mutex);
    if (!*result)
        return std::nullopt;
    double nacks = 0, keyFrames = 0;
    for (const auto& [id, entry] : **result) {
        if (entry.type != "outbound-rtp")
            continue;
        nacks += entry.values.value("nackCount", 0.0);
        keyFrames += entry.values.value("pliCount", 0.0) + entry.values.value("firCount", 0.0);
    }
    return std::make_pair(nacks, keyFrames);
}

double kitNacks(const VRQGamePlayer& player)
{
    const nlohmann::json report = player.currentStatisReport();
    return report.value("VideoPacketNack", 0.0);
}

std::optional<Figures> measure(vrqserver::ReferenceServer& server, const Setting& setting, std::chrono::seconds length)
{
    server.faults().setLinkConditions(setting.link);
    auto host = BenchPlayerHost::create(server.origin());
    const bool playing = vrq::runMainLoopUntil([&] { return host->failure() || !host->videoShows().empty(); }, 20s);
    auto session = server.gameServer().latestSession();
    if (!playing || host->failure() || !session) {
        std::printf("%s: the session did not start (failure %d)\n", setting.name, host->failure().value_or(0));
        host->stop();
        return std::nullopt;
    }
    auto times = std::make_shared<FrameTimes>();
    host->player()->videoView()->setFrameObserver([times] { times->add(Clock::now()); });
    pause(kSettle);

    const auto countsBefore = session->linkCounts();
    const double kitNacksBefore = kitNacks(*host->player());
    const auto feedbackBefore = serverFeedback(*session);
    const auto start = Clock::now();
    times->start();
    pause(length);
    const auto shown = times->stop();
    Figures figures;
    figures.seconds = msSince(start) / 1000.0;
    const auto countsAfter = session->linkCounts();
    // The kit's report follows its once-a-second statistics: let the last second in.
    pause(1100ms);
    figures.nacks = kitNacks(*host->player()) - kitNacksBefore;
    const auto feedbackAfter = serverFeedback(*session);
    if (feedbackBefore && feedbackAfter)
        figures.keyFrameRequests = feedbackAfter->second - feedbackBefore->second;
    host->player()->videoView()->setFrameObserver(nullptr);
    host->stop();
    const bool reconnected = !host->reconnectReasons().empty();

    figures.framesShown = shown.size();
    figures.framesSent = countsAfter.frames - countsBefore.frames;
    figures.packetsLost = countsAfter.lost - countsBefore.lost;
    figures.retransmissions = countsAfter.retransmissions - countsBefore.retransmissions;
    figures.fps = static_cast<double>(shown.size()) / figures.seconds;
    figures.framesDecoded = figures.framesSent ? static_cast<double>(shown.size()) / static_cast<double>(figures.framesSent) : 0;
    freezes(shown, figures);
    std::printf("%-14s %.1f s: %llu frames sent, %llu shown; %llu video packets lost on the wire, %llu retransmissions sent;"
                " NACKs received by the server %.0f%s\n",
                setting.name, figures.seconds, static_cast<unsigned long long>(figures.framesSent),
                static_cast<unsigned long long>(figures.framesShown), static_cast<unsigned long long>(figures.packetsLost),
                static_cast<unsigned long long>(figures.retransmissions),
                feedbackBefore && feedbackAfter ? feedbackAfter->first - feedbackBefore->first : -1.0,
                reconnected ? "; the session reconnected" : "");
    std::fflush(stdout);
    return figures;
}

void report(const char* name, const Figures& lossy, const Figures& clean)
{
    char line[96];
    const auto row = [&](const char* what, const char* unit, double value, double baseline) {
        std::snprintf(line, sizeof line, "%s: %s", name, what);
        printRatio(line, unit, "lossy", value, "clean", baseline);
    };
    row("fps held", "fps", lossy.fps, clean.fps);
    row("freezes per minute", "/min", lossy.freezesPerMinute, clean.freezesPerMinute);
    row("longest freeze", "ms", lossy.longestFreezeMs, clean.longestFreezeMs);
    row("longest gap between frames", "ms", lossy.longestGapMs, clean.longestGapMs);
    row("frames decoded / sent", "", lossy.framesDecoded, clean.framesDecoded);
    row("NACKs sent by the kit", "", lossy.nacks, clean.nacks);
    row("key-frame requests (server's count)", "", lossy.keyFrameRequests, clean.keyFrameRequests);
}

} // namespace

int main(int argc, char** argv)
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    const long seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 30;
    if (seconds < 1 || seconds > 600) {
        std::fprintf(stderr, "usage: vrq-bench-loss [SECONDS per setting, 1 to 600]\n");
        return 2;
    }
    const auto length = std::chrono::seconds(seconds);
    std::printf("loss benchmarks (the kit over a lossy link against a clean link, same run, server on %s, %ld s per setting)\n",
                kHost, seconds);
    vrqserver::ReferenceServer::Options options;
    options.host = kHost;
    auto server = vrqserver::ReferenceServer::start(options);
    if (!server) {
        std::printf("the reference server cannot start on %s\n", kHost);
        return 1;
    }
    VRQHttpHelper::setBaseHost(server->origin());
    vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);

    const Setting clean{"clean", {}};
    const Setting settings[] = {
        {"delay only", {0.0, 30ms, 10ms, kSeed}},
        {"2% loss", {0.02, 30ms, 10ms, kSeed}},
        {"5% loss", {0.05, 30ms, 10ms, kSeed}},
    };
    const auto baseline = measure(*server, clean, length);
    std::vector<std::pair<const Setting*, Figures>> measured;
    for (const Setting& setting : settings)
        if (auto figures = measure(*server, setting, length))
            measured.emplace_back(&setting, *figures);
    server->faults().setLinkConditions({});
    vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt);
    server->stop();
    if (!baseline) {
        std::printf("no clean baseline\n");
        return 1;
    }
    std::printf("(links with loss or delay: 30 ms +- 10 ms one way, seed %u)\n", kSeed);
    for (const auto& [setting, figures] : measured)
        report(setting->name, figures, *baseline);
    for (const auto& [setting, figures] : measured) {
        if (setting->link.loss != 0.02)
            continue;
        std::printf("target at 2%% loss: frames decoded %.3f (>= 0.97: %s), longest freeze %.0f ms (<= 200 ms: %s)\n",
                    figures.framesDecoded, figures.framesDecoded >= 0.97 ? "met" : "missed", figures.longestFreezeMs,
                    figures.longestFreezeMs <= 200 ? "met" : "missed");
    }
    return 0;
}
