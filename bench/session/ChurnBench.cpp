// Players made, played and stopped one after another in one process, against
// one reference server that runs as a separate process on loopback. Each
// player plays until its first frame, sends a little input through its game
// controller (checked to reach the server), and is stopped and released.
// After each of the first ten players, and then after every twentieth, it
// prints what this process holds once it has settled (resident memory,
// threads, descriptors); at the end the growth against the mean of the
// first ten (target: none).
//
//   vrq-bench-churn [--players N (200)] [--host 127.0.0.N]
#include "BenchFigures.h"
#include "BenchPlayerHost.h"
#include "BenchProcessResources.h"
#include "BenchServerControl.h"
#include "BenchServerProcess.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

namespace {

constexpr int kFirstPlayers = 10;
constexpr int kEvery = 20;
// Memory within this much of the first ten's mean counts as no growth.
constexpr double kRssToleranceMb = 2.0;

struct Options {
    int players = 200;
    std::string host = "127.0.0.72";
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
        if (name == "--players" && end != argv[i + 1] && *end == '\0' && number >= kFirstPlayers && number <= 100000)
            options.players = static_cast<int>(number);
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

// One player from creation to its first frame, a key and a gamepad button
// held until the server's latest session holds them too, then released and
// stopped. False when it did not get that far.
bool playOnce(const std::string& origin, const ServerControl& control, int index)
{
    auto host = BenchPlayerHost::create(origin);
    const bool playing = wait([&] {
        return host->failure() || (!host->videoShows().empty() && host->player()->getDataChannelState("km") == 1);
    }, 20s);
    bool inputSeen = false;
    if (playing && !host->failure()) {
        const auto controller = host->player()->gameController();
        const int key = 0x41 + index % 26;
        controller->mouseMoveTo(4096, 4096);
        controller->turnJoyStick(0.5, -0.5, true);
        controller->clickKeyboard(key, true);
        controller->clickGamepadKey(4096, true);
        auto lastAsked = Clock::now() - 1s;
        inputSeen = wait([&] {
            if (Clock::now() - lastAsked < 20ms)
                return false;
            lastAsked = Clock::now();
            const json pad = control.get("/control/gamepad");
            if (!pad.is_object())
                return false;
            const auto held = pad.value("keys_held", std::vector<int>());
            return std::find(held.begin(), held.end(), key) != held.end() && (pad.value("buttons", 0u) & 4096u) != 0;
        }, 5s);
        controller->clickKeyboard(key, false);
        controller->clickGamepadKey(4096, false);
    }
    if (!inputSeen)
        std::printf("player %d: %s (failure %d)\n", index,
                    playing ? "its input did not reach the server" : "it did not show video", host->failure().value_or(0));
    host->stop();
    return inputSeen;
}

// What the process holds once a stopped player's work has wound down: the
// kit's HTTP transfers done and the thread and descriptor counts unchanged
// for half a second (at most 10 s in all).
ProcessResources settled()
{
    auto resources = ProcessResources::now();
    auto stableSince = Clock::now();
    wait([&] {
        const auto now = ProcessResources::now();
        if (now.threads() != resources.threads() || now.descriptors() != resources.descriptors()
            || vrq::HttpTransport::shared().pendingCount() != 0) {
            resources = now;
            stableSince = Clock::now();
            return false;
        }
        return Clock::now() - stableSince >= 500ms;
    }, 10s);
    return ProcessResources::now();
}

struct Sample {
    int players = 0;
    ProcessResources resources;
};

void printSample(const Sample& sample, double secondsPerPlayer)
{
    std::printf("after %4d players: RSS %7.1f MB (anon %7.1f, heap in use %7.1f), threads %3d, descriptors %3d, "
                "%.2f s per player\n",
                sample.players, sample.resources.rssMb(), static_cast<double>(sample.resources.anonKb) / 1024.0,
                static_cast<double>(sample.resources.heapKb) / 1024.0, sample.resources.threads(),
                sample.resources.descriptors(), secondsPerPlayer);
    std::fflush(stdout);
}

int churn(const Options& options, const ServerProcess& server)
{
    const ServerControl control(server.origin());
    std::vector<Sample> samples;
    int played = 0;
    auto since = Clock::now();
    int playersSince = 0;
    const auto start = Clock::now();
    for (int n = 1; n <= options.players; ++n) {
        played += playOnce(server.origin(), control, n) ? 1 : 0;
        ++playersSince;
        if (n > kFirstPlayers && n % kEvery != 0 && n != options.players)
            continue;
        const double secondsPerPlayer = msSince(since) / 1000.0 / playersSince;
        Sample sample{n, settled()};
        printSample(sample, secondsPerPlayer);
        samples.push_back(std::move(sample));
        since = Clock::now();
        playersSince = 0;
    }

    // Summed as integers and divided once, so that equal counts give a growth of exactly 0.
    long rssKb = 0, threadSum = 0, descriptorSum = 0;
    for (int i = 0; i < kFirstPlayers; ++i) {
        const ProcessResources& resources = samples[static_cast<std::size_t>(i)].resources;
        rssKb += resources.rssKb;
        threadSum += resources.threads();
        descriptorSum += resources.descriptors();
    }
    const double rss = static_cast<double>(rssKb) / 1024.0 / kFirstPlayers;
    const double threads = static_cast<double>(threadSum) / kFirstPlayers;
    const double descriptors = static_cast<double>(descriptorSum) / kFirstPlayers;
    const Sample& last = samples.back();
    const Sample& tenth = samples[kFirstPlayers - 1];
    const double rssGrowth = last.resources.rssMb() - rss;
    const double threadGrowth = last.resources.threads() - threads;
    const double descriptorGrowth = last.resources.descriptors() - descriptors;
    std::printf("\nsummary: %d players in %.0f s, %d of them played to their first frame and their input reached the server\n",
                options.players, msSince(start) / 1000.0, played);
    std::printf("%-44s mean of the first ten %.1f MB, after %d %.1f MB: %+.2f MB, %+.1f kB per player (target: no growth, "
                "within %.1f MB: %s)\n",
                "RSS", rss, last.players, last.resources.rssMb(), rssGrowth,
                rssGrowth * 1024.0 / (last.players - (kFirstPlayers + 1) / 2.0), kRssToleranceMb,
                rssGrowth <= kRssToleranceMb ? "met" : "MISSED");
    std::printf("%-44s anon %+.2f MB, heap in use %+.2f MB against player 10\n", "  of which",
                static_cast<double>(last.resources.anonKb - tenth.resources.anonKb) / 1024.0,
                static_cast<double>(last.resources.heapKb - tenth.resources.heapKb) / 1024.0);
    // A leak grows with every player; memory the allocator keeps after a
    // warm-up does not: the second half tells them apart.
    const Sample* middle = &samples[kFirstPlayers - 1];
    for (const Sample& sample : samples)
        if (sample.players <= last.players / 2)
            middle = &sample;
    std::printf("%-44s after %d %.1f MB, after %d %.1f MB: %+.2f MB\n", "RSS over the second half", middle->players,
                middle->resources.rssMb(), last.players, last.resources.rssMb(),
                last.resources.rssMb() - middle->resources.rssMb());
    std::printf("%-44s mean of the first ten %.1f, after %d %d: %+.1f (target: no growth: %s)\n", "threads", threads,
                last.players, last.resources.threads(), threadGrowth, threadGrowth <= 0 ? "met" : "MISSED");
    std::printf("%-44s mean of the first ten %.1f, after %d %d: %+.1f (target: no growth: %s)\n", "descriptors", descriptors,
                last.players, last.resources.descriptors(), descriptorGrowth, descriptorGrowth <= 0 ? "met" : "MISSED");
    std::printf("%-44s %s\n", "  threads, last against player 10",
                describeDifferences(ProcessResources::differences(tenth.resources.threadNames, last.resources.threadNames)).c_str());
    std::printf("%-44s %s\n", "  descriptors, last against player 10",
                describeDifferences(ProcessResources::differences(tenth.resources.descriptorKinds, last.resources.descriptorKinds)).c_str());
    return played == options.players ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const auto options = parse(argc, argv);
    if (!options) {
        std::fprintf(stderr, "usage: vrq-bench-churn [--players N (200, at least %d)] [--host 127.0.0.N]\n", kFirstPlayers);
        return 2;
    }
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    std::printf("churn: %d players made, played and stopped one after another (server process on %s)\n", options->players,
                options->host.c_str());
    // A session whose player stopped is closed by the server after 10 s without heartbeats at the latest.
    ServerProcess server(options->host, 640, 360, 30, {"--idle-timeout", "10"});
    if (server.origin().empty()) {
        std::printf("the game server did not start on %s\n", options->host.c_str());
        return 1;
    }
    VRQHttpHelper::setBaseHost(server.origin());
    vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);
    const int result = churn(*options, server);
    vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt);
    return result;
}
