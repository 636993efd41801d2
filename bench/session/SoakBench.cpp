// One long game session against the reference server, which runs as a
// separate process on loopback. Input goes through the player's game
// controller every 50 ms (keys, mouse buttons and moves, the gamepad's
// buttons and sticks), and every few minutes the server drops the peer, so
// that the player reconnects through its own path (lost connection,
// reconnect request, new answer, video again). Once a minute it prints what
// this process holds (resident memory, threads, descriptors), the frame rate
// over that minute and the reconnections so far, after checking that a
// marked input reached the server; at the end a summary against the targets:
// memory growth after the first minute of at most 2 MB, threads and
// descriptors constant.
//
//   vrq-bench-soak [--minutes N (30)] [--reconnect-every SECONDS (300)] [--host 127.0.0.N]
#include "BenchFigures.h"
#include "BenchPlayerHost.h"
#include "BenchProcessResources.h"
#include "BenchServerControl.h"
#include "BenchServerProcess.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

namespace {

constexpr int kServerFps = 30;
constexpr auto kInputInterval = 50ms;
constexpr auto kSampleInterval = 60s;
constexpr double kRssGrowthTargetMb = 2.0;
// A gamepad button the regular input never presses, held by the marked input.
constexpr int kMarkButton = 16384;

struct Options {
    int minutes = 30;
    int reconnectEverySeconds = 300;
    std::string host = "127.0.0.71";
};

std::optional<Options> parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 >= argc)
            return std::nullopt;
        const std::string name = argv[i];
        char* end = nullptr;
        const long number = std::strtol(argv[i + 1], &end, 10);
        const bool isNumber = end != argv[i + 1] && *end == '\0';
        if (name == "--minutes" && isNumber && number >= 1 && number <= 24 * 60)
            options.minutes = static_cast<int>(number);
        else if (name == "--reconnect-every" && isNumber && number >= 10 && number <= 24 * 3600)
            options.reconnectEverySeconds = static_cast<int>(number);
        else if (name == "--host")
            options.host = argv[i + 1];
        else
            return std::nullopt;
    }
    return options;
}

bool wait(const std::function<bool()>& predicate, std::chrono::milliseconds timeout)
{
    return vrq::runMainLoopUntil(predicate, timeout);
}

// Runs the main loop until the given time, at least one iteration.
void runUntil(Clock::time_point until)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
    wait([] { return false; }, std::max(left, std::chrono::milliseconds(1)));
}

// The regular input, one message per 50 ms tick, in a cycle of ten: a key
// pressed and released, an absolute and a relative mouse move, the
// gamepad's A pressed and released, both sticks, the wheel and the right
// mouse button.
class InputScript {
public:
    void step(VRQGameController& controller)
    {
        const long long n = m_step++;
        const long long round = n / 10;
        const double angle = static_cast<double>(round % 64) * 0.1;
        switch (n % 10) {
        case 0: controller.clickKeyboard(0x41 + static_cast<int>(round % 26), true); count("key"); break;
        case 1: controller.clickKeyboard(0x41 + static_cast<int>(round % 26), false); count("key"); break;
        case 2: controller.mouseMoveTo(static_cast<double>(round % 8192), static_cast<double>((round * 7) % 8192)); count("mouse move"); break;
        case 3: controller.mouseDeltaMove(round % 2 ? 12.5 : -12.5, round % 3 ? 4 : -8); count("mouse move"); break;
        case 4: controller.clickGamepadKey(4096, true); count("gamepad key"); break;
        case 5: controller.clickGamepadKey(4096, false); count("gamepad key"); break;
        case 6: controller.turnJoyStick(std::sin(angle), std::cos(angle), true); count("gamepad stick"); break;
        case 7: controller.turnJoyStick(std::cos(angle), -std::sin(angle), false); count("gamepad stick"); break;
        case 8: controller.mouseScroll(round % 2 ? 1.0 : -1.0); count("mouse wheel"); break;
        default: controller.clickMouseIsLeft(false, round % 2 == 0); count("mouse button"); break;
        }
    }
    void count(const char* kind) { ++m_sent[kind]; }
    const std::map<std::string, long long>& sent() const { return m_sent; }

private:
    long long m_step = 0;
    std::map<std::string, long long> m_sent;
};

// A marked input: a function key and the gamepad's X held and the mouse at a
// position of its own, then released. True when the server's view of the
// latest session showed all three within 3 s.
bool markedInputArrives(VRQGameController& controller, const ServerControl& control, int mark)
{
    const int key = 0x70 + mark % 8; // F1..F8: the regular input uses letters
    const double x = 512.0 * (1 + mark % 15), y = 8192.0 - x;
    controller.clickKeyboard(key, true);
    controller.clickGamepadKey(kMarkButton, true);
    controller.mouseMoveTo(x, y);
    auto lastAsked = Clock::now() - 1s;
    const bool seen = wait([&] {
        if (Clock::now() - lastAsked < 50ms)
            return false;
        lastAsked = Clock::now();
        const json pad = control.get("/control/gamepad");
        const json pointer = control.get("/control/pointer");
        if (!pad.is_object() || !pointer.is_object() || !pointer["pointer"].is_object())
            return false;
        const auto held = pad.value("keys_held", std::vector<int>());
        return std::find(held.begin(), held.end(), key) != held.end()
               && (pad.value("buttons", 0u) & static_cast<unsigned>(kMarkButton)) != 0
               && std::fabs(pointer["pointer"].value("x", -1.0) - x / 8192.0) < 1e-9
               && std::fabs(pointer["pointer"].value("y", -1.0) - y / 8192.0) < 1e-9;
    }, 3s);
    controller.clickKeyboard(key, false);
    controller.clickGamepadKey(kMarkButton, false);
    return seen;
}

struct Sample {
    int minute = 0;
    ProcessResources resources;
    double fps = 0;        // frames shown over the minute before, per second
    float reportedFps = 0; // the kit's own statistics at the sample
    int reconnections = 0; // video again after a drop, so far
    bool reconnectedThisMinute = false;
};

void printSample(const Sample& sample, const char* marked)
{
    std::printf("minute %3d: RSS %7.1f MB (anon %7.1f, heap in use %7.1f), threads %3d, descriptors %3d, "
                "fps %5.1f (kit reports %4.1f), reconnections %d, marked input %s\n",
                sample.minute, sample.resources.rssMb(), static_cast<double>(sample.resources.anonKb) / 1024.0,
                static_cast<double>(sample.resources.heapKb) / 1024.0, sample.resources.threads(),
                sample.resources.descriptors(), sample.fps, static_cast<double>(sample.reportedFps), sample.reconnections,
                marked);
    std::fflush(stdout);
}

// A session that shows video, has its input channel open and knows its
// token (a reconnect request needs it); nothing when it does not get there.
std::shared_ptr<BenchPlayerHost> startSession(const std::string& origin)
{
    auto host = BenchPlayerHost::create(origin);
    const bool playing = wait([&] {
        return host->failure()
               || (!host->videoShows().empty() && host->player()->getDataChannelState("km") == 1
                   && !VRQSDKMonitor::sharedInstance().currentSDKReport().token().empty());
    }, 20s);
    if (!playing || host->failure()) {
        std::printf("the session did not start (failure %d)\n", host->failure().value_or(0));
        host->stop();
        return nullptr;
    }
    return host;
}

struct Drop {
    Clock::time_point at;
    std::size_t showsBefore = 0;
    std::optional<double> toVideoMs; // once video came again
};

int soak(const Options& options, const ServerProcess& server)
{
    const ServerControl control(server.origin());
    auto host = startSession(server.origin());
    if (!host)
        return 1;
    const auto controller = host->player()->gameController();
    const auto view = host->player()->videoView();
    controller->enableVirtualGamepad(true);

    InputScript input;
    std::vector<Sample> samples;
    std::vector<Drop> drops;
    int dropsRefused = 0, marksSeen = 0, marksTried = 0;
    long long ticksWithoutPlay = 0;
    std::size_t showsSeen = host->videoShows().size();
    const auto start = Clock::now();
    const auto end = start + std::chrono::minutes(options.minutes);
    const auto reconnectEvery = std::chrono::seconds(options.reconnectEverySeconds);
    // Drops fall half a period off the minute marks where they can, so that
    // most samples see a settled session.
    auto nextDrop = start + reconnectEvery / 2;
    auto nextSample = start + kSampleInterval;
    auto nextTick = start;
    std::uint64_t framesAtSample = view->framesReceived();
    auto lastSampleAt = start;

    Sample first;
    first.resources = ProcessResources::now();
    printSample(first, "-");
    samples.push_back(first);

    while (Clock::now() < end) {
        // A tick that came late (a blocking control request) is not made up with a burst.
        nextTick = std::max(nextTick + kInputInterval, Clock::now());
        runUntil(nextTick);
        if (host->failure()) {
            std::printf("the session failed with code %d after %.0f s\n", *host->failure(), msSince(start) / 1000);
            break;
        }
        // A new first frame: the session is back after a drop.
        if (host->videoShows().size() > showsSeen) {
            showsSeen = host->videoShows().size();
            for (Drop& drop : drops)
                if (!drop.toVideoMs && showsSeen > drop.showsBefore)
                    drop.toVideoMs = msBetween(drop.at, host->videoShows().back());
            controller->enableVirtualGamepad(true);
        }
        if (host->player()->gameStatus() == VRQGameStatusPlaying)
            input.step(*controller);
        else
            ++ticksWithoutPlay;

        const auto now = Clock::now();
        if (now >= nextDrop && now < end) {
            nextDrop += reconnectEvery;
            Drop drop{now, host->videoShows().size(), std::nullopt};
            if (control.post("/control/drop") == 200)
                drops.push_back(drop);
            else
                ++dropsRefused;
        }
        if (now >= nextSample) {
            nextSample += kSampleInterval;
            Sample sample;
            sample.minute = static_cast<int>(samples.size());
            const std::uint64_t frames = view->framesReceived();
            sample.fps = static_cast<double>(frames - framesAtSample) / (msSince(lastSampleAt) / 1000.0);
            framesAtSample = frames;
            sample.reportedFps = VRQSDKMonitor::sharedInstance().currentSDKReport().fps();
            for (const Drop& drop : drops) {
                sample.reconnections += drop.toVideoMs ? 1 : 0;
                sample.reconnectedThisMinute = sample.reconnectedThisMinute || drop.at >= lastSampleAt;
            }
            lastSampleAt = Clock::now();
            sample.resources = ProcessResources::now();
            // The marked input waits for a session that plays (a reconnection may be under way).
            const char* marked = "not tried (not playing)";
            if (wait([&] { return host->player()->gameStatus() == VRQGameStatusPlaying || host->failure(); }, 20s)
                && !host->failure()) {
                ++marksTried;
                const bool seen = markedInputArrives(*controller, control, marksTried);
                marksSeen += seen ? 1 : 0;
                marked = seen ? "seen by the server" : "NOT seen by the server";
            }
            printSample(sample, marked);
            samples.push_back(sample);
            // The marked input's wait is not input time: the ticks start again from now.
            nextTick = Clock::now();
        }
    }
    const bool failed = host->failure().has_value();
    host->stop();
    host.reset();

    std::printf("\nsummary over %.1f minutes, server at %d fps, a drop every %d s\n", msSince(start) / 60000.0, kServerFps,
                options.reconnectEverySeconds);
    if (samples.size() >= 3) {
        const Sample& warm = samples[1];
        const Sample& last = samples.back();
        const double growth = last.resources.rssMb() - warm.resources.rssMb();
        std::printf("%-44s %.1f MB at minute 1, %.1f MB at minute %d: %+.2f MB (target <= %.1f MB: %s)\n",
                    "RSS growth after warm-up", warm.resources.rssMb(), last.resources.rssMb(), last.minute, growth,
                    kRssGrowthTargetMb, growth <= kRssGrowthTargetMb ? "met" : "MISSED");
        std::printf("%-44s anon %+.2f MB, heap in use %+.2f MB\n", "  of which",
                    static_cast<double>(last.resources.anonKb - warm.resources.anonKb) / 1024.0,
                    static_cast<double>(last.resources.heapKb - warm.resources.heapKb) / 1024.0);
        int minThreads = warm.resources.threads(), maxThreads = minThreads;
        int minFds = warm.resources.descriptors(), maxFds = minFds;
        for (std::size_t i = 1; i < samples.size(); ++i) {
            minThreads = std::min(minThreads, samples[i].resources.threads());
            maxThreads = std::max(maxThreads, samples[i].resources.threads());
            minFds = std::min(minFds, samples[i].resources.descriptors());
            maxFds = std::max(maxFds, samples[i].resources.descriptors());
        }
        std::printf("%-44s %d..%d from minute 1 on (target constant: %s)\n", "threads", minThreads, maxThreads,
                    minThreads == maxThreads ? "met" : "MISSED");
        std::printf("%-44s %d..%d from minute 1 on (target constant: %s)\n", "descriptors", minFds, maxFds,
                    minFds == maxFds ? "met" : "MISSED");
        std::printf("%-44s %s\n", "  threads, last sample against minute 1",
                    describeDifferences(ProcessResources::differences(warm.resources.threadNames, last.resources.threadNames)).c_str());
        std::printf("%-44s %s\n", "  descriptors, last sample against minute 1",
                    describeDifferences(ProcessResources::differences(warm.resources.descriptorKinds, last.resources.descriptorKinds)).c_str());
    }
    std::vector<double> fps, steadyFps;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        fps.push_back(samples[i].fps);
        if (!samples[i].reconnectedThisMinute)
            steadyFps.push_back(samples[i].fps);
    }
    if (!fps.empty())
        std::printf("%-44s median %.1f, lowest %.1f; minutes without a drop: lowest %.1f (%zu minutes)\n",
                    "fps per minute", percentile(fps, 0.5), percentile(fps, 0), steadyFps.empty() ? 0.0 : percentile(steadyFps, 0),
                    steadyFps.size());
    std::vector<double> toVideo;
    for (const Drop& drop : drops)
        if (drop.toVideoMs)
            toVideo.push_back(*drop.toVideoMs);
    std::printf("%-44s %zu of %zu drops (%d drop requests refused)\n", "reconnections done", toVideo.size(), drops.size(),
                dropsRefused);
    if (!toVideo.empty())
        std::printf("%-44s p50 %.0f ms, max %.0f ms\n", "  drop to video again", percentile(toVideo, 0.5),
                    *std::max_element(toVideo.begin(), toVideo.end()));
    long long sent = 0;
    std::string kinds;
    for (const auto& [kind, count] : input.sent()) {
        sent += count;
        kinds += (kinds.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
    }
    std::printf("%-44s %lld (%s); %lld ticks skipped while not playing\n", "input messages sent", sent, kinds.c_str(),
                ticksWithoutPlay);
    std::printf("%-44s %d of %d\n", "marked inputs seen by the server", marksSeen, marksTried);
    const bool complete = !failed && toVideo.size() == drops.size() && dropsRefused == 0 && marksSeen == marksTried;
    if (!complete)
        std::printf("the soak did not complete: %s\n", failed ? "the session failed" : "a drop, a reconnection or a marked input went wrong");
    return complete ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const auto options = parse(argc, argv);
    if (!options) {
        std::fprintf(stderr, "usage: vrq-bench-soak [--minutes N (30)] [--reconnect-every SECONDS (300, at least 10)] "
                             "[--host 127.0.0.N]\n");
        return 2;
    }
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    std::printf("soak: %d minutes, input every %lld ms, the server drops the peer every %d s (server process on %s)\n",
                options->minutes, static_cast<long long>(kInputInterval.count()), options->reconnectEverySeconds,
                options->host.c_str());
    // The kit's heartbeats keep the session; one that stops sending them is closed after 10 s.
    ServerProcess server(options->host, 640, 360, kServerFps, {"--idle-timeout", "10"});
    if (server.origin().empty()) {
        std::printf("the game server did not start on %s\n", options->host.c_str());
        return 1;
    }
    VRQHttpHelper::setBaseHost(server.origin());
    // Reachable from the start, so that the player's network status is known
    // and a reconnect never waits for the network.
    vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);
    const int result = soak(*options, server);
    vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt);
    return result;
}
