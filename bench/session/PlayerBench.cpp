// Player benchmarks against the reference server, in-process on 127.0.0.70,
// each printed against a baseline measured in the same run:
//   - input latency: VRQGameController::clickKeyboard on the main thread to
//     the server's input observer seeing the "km" message (p50, p99), against
//     the engine's own peer sending on "km" (raw data-channel one-way latency,
//     client to server);
//   - reconnection: from "the network is back" to video again, after a lost
//     peer whose reconnect was refused while the network was down, against
//     the first start of a session (startGameWithRemoteSession to video).
// Times are steady-clock times taken in this one process.
#include "BenchFigures.h"
#include "BenchPlayerHost.h"
#include "ObservedInputs.h"
#include "RawOfferer.h"
#include "ReferenceServer.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <cstdio>
#include <functional>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* kHost = "127.0.0.70";
constexpr int kInputMessages = 300;
constexpr auto kInputInterval = 5ms;
constexpr int kReconnectRounds = 5;

bool wait(const std::function<bool()>& predicate, std::chrono::milliseconds timeout = 15s)
{
    return vrq::runMainLoopUntil(predicate, timeout);
}

void pause(std::chrono::milliseconds duration)
{
    vrq::runMainLoopUntil([] { return false; }, duration);
}

// Observes every "km" message into a fresh recorder, which the observer keeps alive.
std::shared_ptr<ObservedInputs> observeInputs(vrqserver::ReferenceServer& server)
{
    auto observed = std::make_shared<ObservedInputs>();
    server.setInputObserver([observed](const vrqserver::ChannelMessage& message, Clock::time_point arrival) {
        observed->record(message.bytes, arrival);
    });
    return observed;
}

// A session that shows video and has its input channel open; nothing when it does not get there.
std::shared_ptr<BenchPlayerHost> playSession(const std::string& origin)
{
    auto host = BenchPlayerHost::create(origin);
    const bool playing = wait([&] {
        return host->failure() || (!host->videoShows().empty() && host->player()->getDataChannelState("km") == 1);
    });
    if (!playing || host->failure()) {
        std::printf("a session did not start (failure %d)\n", host->failure().value_or(0));
        host->stop();
        return nullptr;
    }
    return host;
}

std::optional<double> firstStartMs(const BenchPlayerHost& host)
{
    if (!host.startedAt() || host.videoShows().empty())
        return std::nullopt;
    return msBetween(*host.startedAt(), host.videoShows().front());
}

// Key presses and releases through the kit; the n-th keyboard message the
// server sees is the n-th sent ("km" is one ordered channel).
std::vector<double> kitInputLatencies(vrqserver::ReferenceServer& server, BenchPlayerHost& host)
{
    const auto observed = observeInputs(server);
    const auto controller = host.player()->gameController();
    std::vector<Clock::time_point> sent;
    for (int i = 0; i < kInputMessages; ++i) {
        sent.push_back(Clock::now());
        controller->clickKeyboard(0x41 + (i / 2) % 26, i % 2 == 0);
        pause(kInputInterval);
    }
    wait([&] { return observed->ofType("keyboard").size() >= sent.size(); }, 5s);
    server.setInputObserver(nullptr);
    std::vector<double> latencies;
    const auto arrivals = observed->ofType("keyboard");
    for (std::size_t i = 0; i < std::min(arrivals.size(), sent.size()); ++i) {
        const bool expected = arrivals[i].message.value("key", 0) == 0x41 + static_cast<int>(i / 2) % 26;
        if (expected)
            latencies.push_back(msBetween(sent[i], arrivals[i].time));
    }
    if (latencies.size() != sent.size())
        std::printf("kit input: %zu of %zu keys arrived as sent\n", latencies.size(), sent.size());
    return latencies;
}

// Numbered messages on "km" from the engine's own peer, connected to the same server.
std::vector<double> rawInputLatencies(vrqserver::ReferenceServer& server)
{
    RawOfferer raw;
    if (!wait([&] { return raw.offer().has_value(); }))
        return {};
    std::optional<std::string> answer;
    std::atomic<bool> answered{false};
    auto session = server.gameServer().acceptOffer(*raw.offer(), [&](auto sdp, auto) {
        answer = sdp;
        answered = true;
    });
    if (!wait([&] { return answered.load(); }) || !answer)
        return {};
    raw.applyAnswer(*answer);
    if (!wait([&] { return raw.connected() && raw.channelsOpen(); }))
        return {};
    const auto observed = observeInputs(server);
    std::vector<Clock::time_point> sent;
    for (int i = 0; i < kInputMessages; ++i) {
        sent.push_back(Clock::now());
        raw.send("km", nlohmann::json{{"type", "probe"}, {"n", i}}.dump());
        pause(kInputInterval);
    }
    wait([&] { return observed->ofType("probe").size() >= sent.size(); }, 5s);
    server.setInputObserver(nullptr);
    std::vector<double> latencies;
    for (const auto& arrival : observed->ofType("probe")) {
        const int n = arrival.message.value("n", -1);
        if (n >= 0 && n < kInputMessages)
            latencies.push_back(msBetween(sent[static_cast<std::size_t>(n)], arrival.time));
    }
    session->close();
    return latencies;
}

// The player waits in "reconnecting" for the network once its reconnect was
// answered without a session while the network was down.
bool loseThePeerWhileOffline(vrqserver::ReferenceServer& server, BenchPlayerHost& host)
{
    const std::size_t reasonsBefore = host.reconnectReasons().size();
    const std::size_t requestsBefore = server.reconnectRequests().size();
    server.faults().setAnswerMode(vrqserver::AnswerMode::Refuse);
    vrq::NetworkFlagsSource::shared().injectFlags(0u);
    pause(100ms); // the player hears of the change on the main loop
    if (!server.faults().dropPeer())
        return false;
    return wait([&] {
        return host.reconnectReasons().size() > reasonsBefore && server.reconnectRequests().size() > requestsBefore
               && vrq::HttpTransport::shared().pendingCount() == 0
               && host.player()->gameStatus() == VRQGameStatusReconnecting;
    }, 30s);
}

std::optional<double> networkBackToVideoMs(vrqserver::ReferenceServer& server, BenchPlayerHost& host)
{
    if (!loseThePeerWhileOffline(server, host)) {
        std::printf("reconnect: the player did not wait for the network (status %d)\n",
                    static_cast<int>(host.player()->gameStatus()));
        return std::nullopt;
    }
    const std::size_t showsBefore = host.videoShows().size();
    server.faults().setAnswerMode(vrqserver::AnswerMode::Normal);
    const auto networkBack = Clock::now();
    vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);
    if (!wait([&] { return host.videoShows().size() > showsBefore || host.failure(); }, 20s) || host.failure())
        return std::nullopt;
    return msBetween(networkBack, host.videoShows().back());
}

std::unique_ptr<vrqserver::ReferenceServer> startServer()
{
    vrqserver::ReferenceServer::Options options;
    options.host = kHost;
    options.game.video.width = 640;
    options.game.video.height = 360;
    return vrqserver::ReferenceServer::start(options);
}

void benchPlayer(vrqserver::ReferenceServer& server)
{
    std::vector<double> firstStarts, kitLatency, rawLatency, reconnects;
    auto record = [&](const std::shared_ptr<BenchPlayerHost>& host) {
        if (auto ms = firstStartMs(*host))
            firstStarts.push_back(*ms);
    };
    if (auto host = playSession(server.origin())) {
        record(host);
        kitLatency = kitInputLatencies(server, *host);
        host->stop();
    }
    rawLatency = rawInputLatencies(server);
    if (auto host = playSession(server.origin())) {
        record(host);
        for (int round = 0; round < kReconnectRounds; ++round) {
            pause(500ms); // a settled session
            if (auto ms = networkBackToVideoMs(server, *host))
                reconnects.push_back(*ms);
        }
        host->stop();
    }
    if (auto host = playSession(server.origin())) {
        record(host);
        host->stop();
    }
    printPair("input: key to server, p50", "ms", percentile(kitLatency, 0.5), percentile(rawLatency, 0.5));
    printPair("input: key to server, p99", "ms", percentile(kitLatency, 0.99), percentile(rawLatency, 0.99));
    std::printf("%-44s kit %zu keys, raw %zu messages\n", "input: samples", kitLatency.size(), rawLatency.size());
    printRatio("network back to video (p50)", "ms", "reconnect", percentile(reconnects, 0.5), "first start",
               percentile(firstStarts, 0.5));
    printRatio("network back to video (max)", "ms", "reconnect",
               reconnects.empty() ? 0 : *std::max_element(reconnects.begin(), reconnects.end()), "first start",
               percentile(firstStarts, 0.5));
    std::printf("%-44s %zu of %d rounds, %zu first starts\n", "reconnect: samples", reconnects.size(), kReconnectRounds,
                firstStarts.size());
}

} // namespace

int main()
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    std::printf("player benchmarks (kit = VRQGamePlayer, raw = the engine's own peer, same run, server on %s)\n", kHost);
    auto server = startServer();
    if (!server) {
        std::printf("the reference server cannot start on %s\n", kHost);
        return 1;
    }
    VRQHttpHelper::setBaseHost(server->origin());
    // Reachable from the start, so that the player's first network status is known.
    vrq::NetworkFlagsSource::shared().injectFlags(vrq::kReachabilityFlagsReachable);
    benchPlayer(*server);
    vrq::NetworkFlagsSource::shared().injectFlags(std::nullopt);
    server->stop();
    return 0;
}
