// The first session in a fresh process against a later one in the same
// process: from creating the kit's RTC client to its client session being
// ready (the offer set as the local description). Each round runs in a new
// process. Prepared, it starts as a host that calls VRQGamePlayer::prepare()
// at launch starts; not prepared, the first session sets the engine up itself.
#include "BenchChildProcess.h"
#include "BenchFigures.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

class ReadyDelegate : public VRQSdkRtcDelegate {
public:
    void onSetRemoteDescriptionFailed(const VRQError&) override {}
    void onSetLocalDescriptionSuccess() override { ready = true; }
    void onSetLocalDescriptionFailure(const VRQError&) override { failed = true; }
    std::atomic<bool> ready{false};
    std::atomic<bool> failed{false};
};

// Create to client session ready, in ms; negative when it did not get ready.
double timeOneSession()
{
    ReadyDelegate delegate;
    const auto start = Clock::now();
    auto client = VRQWebrtClient::create(nlohmann::json::object(), &delegate);
    const bool ready = vrq::runMainLoopUntil([&] { return delegate.ready.load() || delegate.failed.load(); }, 10s) && delegate.ready;
    const double ms = msSince(start);
    client->close();
    return ready ? ms : -1;
}

int runChild(bool prepared)
{
    // A host prepares the kit at launch and starts its first game when the
    // person asks for one: a second later here.
    if (prepared) {
        VRQWebrtClient::prepare();
        std::this_thread::sleep_for(1s);
    }
    const double first = timeOneSession();
    double later = -1;
    for (int i = 0; i < 3; ++i)
        later = timeOneSession();
    std::printf("%.3f %.3f\n", first, later);
    return first < 0 || later < 0 ? 1 : 0;
}

// One fresh process: its first session's time and a later session's.
std::optional<std::pair<double, double>> runRound(const char* mode)
{
    ChildProcess child({"/proc/self/exe", mode});
    const auto line = child.readLine(Clock::now() + 60s);
    double first = 0, later = 0;
    if (!line || std::sscanf(line->c_str(), "%lf %lf", &first, &later) != 2 || child.outcome() != "exited with status 0")
        return std::nullopt;
    return std::make_pair(first, later);
}

struct Rounds {
    std::vector<double> first;
    std::vector<double> later;
};

Rounds runRounds(const char* mode)
{
    constexpr int kRounds = 7;
    Rounds rounds;
    for (int i = 0; i < kRounds; ++i) {
        if (auto round = runRound(mode)) {
            rounds.first.push_back(round->first);
            rounds.later.push_back(round->second);
        }
    }
    return rounds;
}

} // namespace

int main(int argc, char** argv)
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    if (argc > 1 && std::string(argv[1]) == "--prepared")
        return runChild(true);
    if (argc > 1 && std::string(argv[1]) == "--unprepared")
        return runChild(false);
    const Rounds prepared = runRounds("--prepared");
    const Rounds unprepared = runRounds("--unprepared");
    if (prepared.first.empty() || unprepared.first.empty()) {
        std::printf("first session in a fresh process: no round completed\n");
        return 1;
    }
    printRatio("first session, kit prepared at launch (p50)", "ms", "first", percentile(prepared.first, 0.5), "later",
               percentile(prepared.later, 0.5));
    printRatio("first session, kit not prepared (p50)", "ms", "first", percentile(unprepared.first, 0.5), "later",
               percentile(unprepared.later, 0.5));
    return 0;
}
