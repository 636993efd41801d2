// End-to-end session benchmarks, each printed against a raw engine peer
// measured in the same run:
//   - construction to local description set;
//   - answer applied to first decoded frame;
//   - data-channel one-way latency, server to client (p50, p99);
//   - CPU of the receiving process while a separate server sends 1080p60.
// The kit's side is VRQWebrtClient; the baseline is the engine's own
// PeerConnection with the same transceivers and channels. Everything runs on 127.0.0.1.
#include "BenchFigures.h"
#include "GameServer.h"
#include "MessageArrivals.h"
#include "RawOfferer.h"
#include "SessionCodec.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <httplib.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using vrq::rtc::PeerConnectionState;

namespace {

// The kit's side: VRQWebrtClient with a delegate and a "cd" handler.
class KitClient : public VRQSdkRtcDelegate, public VRQWebRTCDataHandler {
public:
    static std::shared_ptr<KitClient> make()
    {
        auto kit = std::make_shared<KitClient>();
        kit->client = VRQWebrtClient::create(nlohmann::json::object(), kit.get());
        kit->client->registDataChannelHandler(kit, "cd");
        return kit;
    }
    ~KitClient() override { client->close(); }

    void onSetRemoteDescriptionFailed(const VRQError&) override {}
    void onSetLocalDescriptionSuccess() override { localSet = true; }
    void onSetLocalDescriptionFailure(const VRQError&) override {}
    void onFirstFrameDraw() override
    {
        firstFrameAt = Clock::now();
        firstFrame = true;
    }
    void dataChannelDidChangeState(std::int32_t, const std::string&) override {}
    void onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string&) override { arrivals.record(buffer.data); }

    bool connected() const { return client->connectionState() == PeerConnectionState::Connected; }
    bool channelsOpen() const
    {
        return std::all_of(std::begin(RawOfferer::kLabels), std::end(RawOfferer::kLabels),
                           [&](const char* l) { return client->getDataChannelState(l) == 1; });
    }

    std::shared_ptr<VRQWebrtClient> client;
    std::atomic<bool> localSet{false};
    std::atomic<bool> firstFrame{false};
    Clock::time_point firstFrameAt; // main thread
    MessageArrivals arrivals;
};

bool wait(const std::function<bool()>& predicate, std::chrono::milliseconds timeout = 10s)
{
    return vrq::runMainLoopUntil(predicate, timeout);
}

std::optional<std::string> answerFrom(vrqserver::GameServer& server, const std::string& offer)
{
    std::optional<std::string> answer;
    std::atomic<bool> done{false};
    server.acceptOffer(offer, [&](auto sdp, auto) {
        answer = sdp;
        done = true;
    });
    wait([&] { return done.load(); });
    return answer;
}

// Construction to local description set, median of several runs each.
void benchOfferTime()
{
    std::vector<double> kitTimes, rawTimes;
    for (int i = 0; i < 7; ++i) {
        auto start = Clock::now();
        auto kit = KitClient::make();
        if (wait([&] { return kit->localSet.load(); }))
            kitTimes.push_back(msSince(start));
        start = Clock::now();
        RawOfferer raw;
        if (wait([&] { return raw.offer().has_value(); }))
            rawTimes.push_back(msSince(start));
    }
    printPair("construction to local description (p50)", "ms", percentile(kitTimes, 0.5), percentile(rawTimes, 0.5));
}

template <typename Peer>
bool applyAnswer(Peer& peer, vrqserver::GameServer& server, const std::string& offer)
{
    auto answer = answerFrom(server, offer);
    if (!answer)
        return false;
    if constexpr (std::is_same_v<Peer, KitClient>)
        peer.client->setRemoteSdp(*answer);
    else
        peer.applyAnswer(*answer);
    return true;
}

template <typename Peer>
bool connect(Peer& peer, vrqserver::GameServer& server, const std::string& offer)
{
    return applyAnswer(peer, server, offer) && wait([&] { return peer.firstFrame.load(); })
           && wait([&] { return peer.connected() && peer.channelsOpen() && server.latestSession()->openChannels().size() == 5; });
}

// The steps of a start, in milliseconds after the answer was handed to the engine.
struct StartSteps {
    static constexpr const char* kNames[] = {"answer applied", "ICE connected",       "DTLS connected",
                                             "first RTP packet", "first key frame",   "first frame decoded",
                                             "handed to the view", "first frame on the main thread"};
    static constexpr std::size_t kCount = std::size(kNames);
    std::array<std::vector<double>, kCount> ms;

    void add(const vrq::rtc::StartTimeline& t, Clock::time_point firstFrameOnMain)
    {
        if (!t.answerGiven)
            return;
        const std::optional<Clock::time_point> steps[kCount] = {t.answerApplied,  t.iceConnected,      t.dtlsConnected,
                                                                 t.firstRtpPacket, t.firstKeyFrame,     t.firstFrameDecoded,
                                                                 t.firstFrameDelivered, firstFrameOnMain};
        for (std::size_t i = 0; i < kCount; ++i) {
            if (steps[i])
                ms[i].push_back(msBetween(*t.answerGiven, *steps[i]));
        }
    }
    void print() const
    {
        for (std::size_t i = 0; i < kCount; ++i)
            std::printf("    %-32s p50 %7.1f ms  (%zu starts)\n", kNames[i], percentile(ms[i], 0.5), ms[i].size());
    }
};

// Answer handed over to the first decoded frame on the main thread, over
// several starts against the same server, with the time line of the kit's starts.
void benchFirstFrame(int width, int height, int fps)
{
    constexpr int kStarts = 10;
    vrqserver::GameServer::Options options;
    options.video.width = width;
    options.video.height = height;
    options.video.fps = fps;
    options.video.bitrateKbps = width >= 1920 ? 8000 : 4000;
    auto server = vrqserver::GameServer::start(options);
    std::vector<double> kitFirst, rawFirst;
    StartSteps steps;
    for (int i = 0; i < kStarts; ++i) {
        {
            auto kit = KitClient::make();
            wait([&] { return kit->localSet.load(); });
            const auto start = Clock::now();
            if (applyAnswer(*kit, *server, kit->client->getClientSession()["sdp"]) && wait([&] { return kit->firstFrame.load(); })) {
                const auto timeline = kit->client->startTimeline();
                kitFirst.push_back(msBetween(timeline.answerGiven.value_or(start), kit->firstFrameAt));
                steps.add(timeline, kit->firstFrameAt);
            }
        }
        // Each start gets the server to itself: the last session's encoder stops.
        server->latestSession()->close();
        {
            RawOfferer raw;
            wait([&] { return raw.offer().has_value(); });
            if (applyAnswer(raw, *server, *raw.offer()) && wait([&] { return raw.firstFrame.load(); })) {
                const auto timeline = raw.startTimeline();
                if (timeline.answerGiven && timeline.firstFrameDecoded)
                    rawFirst.push_back(msBetween(*timeline.answerGiven, *timeline.firstFrameDecoded));
            }
        }
        server->latestSession()->close();
    }
    server->stop();
    char name[96];
    std::snprintf(name, sizeof name, "answer to first frame %dx%d@%d (p50)", width, height, fps);
    printPair(name, "ms", percentile(kitFirst, 0.5), percentile(rawFirst, 0.5));
    steps.print();
}

// Server to client over "cd": numbered messages, 2 ms apart.
template <typename Peer>
std::vector<double> oneWayLatencies(Peer& peer, vrqserver::GameServer& server)
{
    constexpr int kMessages = 300;
    std::vector<Clock::time_point> sent(kMessages);
    auto session = server.latestSession();
    for (int i = 0; i < kMessages; ++i) {
        sent[static_cast<std::size_t>(i)] = Clock::now();
        session->send("cd", std::to_string(i));
        vrq::runMainLoopUntil([] { return false; }, 2ms);
    }
    wait([&] {
        std::lock_guard lock(peer.arrivals.mutex);
        return peer.arrivals.times.size() == kMessages;
    }, 5s);
    std::vector<double> latencies;
    std::lock_guard lock(peer.arrivals.mutex);
    for (const auto& [index, arrived] : peer.arrivals.times)
        latencies.push_back(std::chrono::duration<double, std::milli>(arrived - sent[static_cast<std::size_t>(index)]).count());
    return latencies;
}

void benchConnectedSession()
{
    vrqserver::GameServer::Options options;
    options.video.width = 640;
    options.video.height = 360;
    std::vector<double> kitLatency, rawLatency;
    for (int round = 0; round < 3; ++round) {
        auto server = vrqserver::GameServer::start(options);
        {
            auto kit = KitClient::make();
            wait([&] { return kit->localSet.load(); });
            if (connect(*kit, *server, kit->client->getClientSession()["sdp"])) {
                auto l = oneWayLatencies(*kit, *server);
                kitLatency.insert(kitLatency.end(), l.begin(), l.end());
            }
        }
        server->stop();
        server = vrqserver::GameServer::start(options);
        {
            RawOfferer raw;
            wait([&] { return raw.offer().has_value(); });
            if (connect(raw, *server, *raw.offer())) {
                auto l = oneWayLatencies(raw, *server);
                rawLatency.insert(rawLatency.end(), l.begin(), l.end());
            }
        }
        server->stop();
    }
    printPair("data-channel one-way latency p50", "ms", percentile(kitLatency, 0.5), percentile(rawLatency, 0.5));
    printPair("data-channel one-way latency p99", "ms", percentile(kitLatency, 0.99), percentile(rawLatency, 0.99));
}

// A vrq-game-server process on its own loopback address.
class ServerProcess {
public:
    ServerProcess(const std::string& host, int width, int height, int fps)
    {
        int out[2];
        if (::pipe(out) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        const std::string w = std::to_string(width), h = std::to_string(height), f = std::to_string(fps);
        const char* argv[] = {VRQ_GAME_SERVER, "--host", host.c_str(), "--width", w.c_str(), "--height", h.c_str(),
                              "--fps", f.c_str(), "--bitrate", "8000", nullptr};
        if (posix_spawn(&m_pid, VRQ_GAME_SERVER, &actions, nullptr, const_cast<char**>(argv), environ) != 0)
            m_pid = 0;
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        FILE* reader = ::fdopen(out[0], "r");
        char line[512] = {};
        if (reader && std::fgets(line, sizeof line, reader)) {
            const std::string text = line;
            const auto at = text.find("http://");
            if (at != std::string::npos)
                m_origin = text.substr(at, text.find_first_of(" \n", at) - at);
        }
        m_reader = reader;
    }
    ~ServerProcess()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
        if (m_reader)
            std::fclose(m_reader);
    }
    const std::string& origin() const { return m_origin; }

    // POSTs a client session to /session; the answer SDP of the remote session.
    std::optional<std::string> answerFor(const nlohmann::json& clientSession) const
    {
        httplib::Client http(m_origin);
        http.set_read_timeout(15, 0);
        auto response = http.Post("/session", vrq::base64Encode(clientSession.dump()), "text/plain");
        if (!response || response->status != 200)
            return std::nullopt;
        auto decoded = vrq::base64Decode(response->body);
        if (!decoded)
            return std::nullopt;
        auto remote = nlohmann::json::parse(*decoded, nullptr, false);
        if (!remote.is_object() || !remote["sdp"].is_string())
            return std::nullopt;
        return remote["sdp"].get<std::string>();
    }

private:
    pid_t m_pid = 0;
    std::string m_origin;
    FILE* m_reader = nullptr;
};

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct CpuSample {
    double percentOfOneCore = 0;
    double fps = 0;
};

// Receives for a few seconds after the first frame and measures this process alone.
template <typename Peer>
std::optional<CpuSample> sampleCpu(Peer& peer, const std::function<long()>& frames, const nlohmann::json& session,
                                   const ServerProcess& server)
{
    auto answer = server.answerFor(session);
    if (!answer)
        return std::nullopt;
    if constexpr (std::is_same_v<Peer, KitClient>)
        peer.client->setRemoteSdp(*answer);
    else
        peer.applyAnswer(*answer);
    if (!wait([&] { return peer.firstFrame.load(); }, 15s))
        return std::nullopt;
    vrq::runMainLoopUntil([] { return false; }, 2s);
    const long framesBefore = frames();
    const double cpuBefore = cpuSeconds();
    const auto start = Clock::now();
    vrq::runMainLoopUntil([] { return false; }, 8s);
    const double wall = msSince(start) / 1000.0;
    return CpuSample{100.0 * (cpuSeconds() - cpuBefore) / wall, static_cast<double>(frames() - framesBefore) / wall};
}

void benchReceiveCpu()
{
    std::optional<CpuSample> kitSample, rawSample;
    {
        ServerProcess server("127.0.0.1", 1920, 1080, 60);
        auto kit = KitClient::make();
        wait([&] { return kit->localSet.load(); });
        kitSample = sampleCpu(*kit, [&] { return static_cast<long>(kit->client->playView()->framesReceived()); },
                              kit->client->getClientSession(), server);
    }
    {
        ServerProcess server("127.0.0.1", 1920, 1080, 60);
        RawOfferer raw;
        wait([&] { return raw.offer().has_value(); });
        rawSample = sampleCpu(raw, [&] { return raw.frames(); }, nlohmann::json{{"type", "offer"}, {"sdp", *raw.offer()}},
                              server);
    }
    if (!kitSample || !rawSample) {
        std::printf("receive 1080p60: no video arrived\n");
        return;
    }
    printPair("CPU receiving 1080p60 (% of one core)", "%", kitSample->percentOfOneCore, rawSample->percentOfOneCore);
    printPair("frames decoded per second at 1080p60", "fps", kitSample->fps, rawSample->fps);
}

} // namespace

// Without arguments every benchmark runs; otherwise the named ones
// ("offer", "first-frame", "latency", "receive").
int main(int argc, char** argv)
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    const std::vector<std::string> chosen(argv + 1, argv + argc);
    const auto runs = [&](const char* name) {
        return chosen.empty() || std::find(chosen.begin(), chosen.end(), name) != chosen.end();
    };
    vrq::rtc::initializeEngine();
    std::printf("session benchmarks (kit = VRQWebrtClient, raw = the engine's own peer, same run)\n");
    if (runs("offer"))
        benchOfferTime();
    if (runs("first-frame")) {
        benchFirstFrame(1280, 720, 30);
        benchFirstFrame(1920, 1080, 60);
    }
    if (runs("latency"))
        benchConnectedSession();
    if (runs("receive"))
        benchReceiveCpu();
    return 0;
}
