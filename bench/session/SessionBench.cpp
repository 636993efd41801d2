// End-to-end session benchmarks, each printed against a raw engine peer
// measured in the same run:
//   - construction to local description set;
//   - answer applied to first decoded frame;
//   - data-channel one-way latency, server to client (p50, p99);
//   - CPU, decoded frames and memory of a receiving process while a separate
//     server process sends 1080p60.
// The kit's side is VRQWebrtClient; the baseline is the engine's own
// PeerConnection with the same transceivers and channels, except for the
// receive figures, whose baseline is a bare webrtcbin pipeline (BareReceiver.h)
// and where each receiver runs in a fresh process. Everything runs on 127.0.0.1.
#include "BareReceiver.h"
#include "BenchChildProcess.h"
#include "BenchFigures.h"
#include "BenchServerProcess.h"
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
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
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

// POSTs a client session to ORIGIN/session; the answer SDP of the remote session.
std::optional<std::string> answerFor(const std::string& origin, const nlohmann::json& clientSession)
{
    httplib::Client http(origin);
    http.set_connection_timeout(5, 0);
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

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
           + static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A field of /proc/self/status given in kB ("VmRSS", "VmHWM"), in MB (2^20 bytes).
double statusMegabytes(const std::string& field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":"))
            return std::atof(line.c_str() + field.size() + 1) / 1024.0;
    }
    return 0;
}

// What a receiving child measured over its window.
struct CpuSample {
    double percentOfOneCore = 0;
    double wallSeconds = 0;
    long frames = 0;
    double peakMb = 0;     // VmHWM
    double residentMb = 0; // VmRSS at the end
};

// The one line a receiving child prints, and the parent reads back.
constexpr const char* kSampleFormat = "receive-sample cpu=%lf wall=%lf frames=%ld peak=%lf resident=%lf";
constexpr const char* kFailurePrefix = "receive-failed ";

std::string sampleLine(const CpuSample& s)
{
    char line[256];
    std::snprintf(line, sizeof line, "receive-sample cpu=%.3f wall=%.3f frames=%ld peak=%.1f resident=%.1f", s.percentOfOneCore,
                  s.wallSeconds, s.frames, s.peakMb, s.residentMb);
    return line;
}

std::optional<CpuSample> parseSample(const std::string& line)
{
    CpuSample s;
    if (std::sscanf(line.c_str(), kSampleFormat, &s.percentOfOneCore, &s.wallSeconds, &s.frames, &s.peakMb, &s.residentMb) != 5)
        return std::nullopt;
    return s;
}

// Lets two seconds pass after the first frame, then measures this process for the given time.
CpuSample sampleCpu(const std::function<long()>& frames, int seconds)
{
    vrq::runMainLoopUntil([] { return false; }, 2s);
    const long framesBefore = frames();
    const double cpuBefore = cpuSeconds();
    const auto start = Clock::now();
    vrq::runMainLoopUntil([] { return false; }, std::chrono::seconds(seconds));
    CpuSample sample;
    sample.wallSeconds = msSince(start) / 1000.0;
    sample.percentOfOneCore = 100.0 * (cpuSeconds() - cpuBefore) / sample.wallSeconds;
    sample.frames = frames() - framesBefore;
    sample.peakMb = statusMegabytes("VmHWM");
    sample.residentMb = statusMegabytes("VmRSS");
    return sample;
}

// One receiver as a receiving child drives it.
struct Receiver {
    std::function<std::optional<nlohmann::json>()> clientSession; // once the local description is set
    std::function<bool(const std::string&)> applyAnswer;
    std::function<bool()> firstFrame;
    std::function<long()> frames;
};

// Connects to the server at origin and measures; the line to print.
std::string receiveAndSample(const Receiver& receiver, const std::string& origin, int seconds)
{
    std::optional<nlohmann::json> session;
    if (!wait([&] { return (session = receiver.clientSession()).has_value(); }))
        return std::string(kFailurePrefix) + "no local description within 10 s";
    const auto answer = answerFor(origin, *session);
    if (!answer)
        return std::string(kFailurePrefix) + "the server at " + origin + " gave no answer";
    if (!receiver.applyAnswer(*answer))
        return std::string(kFailurePrefix) + "the answer could not be applied";
    if (!wait(receiver.firstFrame, 20s))
        return std::string(kFailurePrefix) + "no frame decoded within 20 s of the answer";
    return sampleLine(sampleCpu(receiver.frames, seconds));
}

std::string receiveWithKit(const std::string& origin, int seconds)
{
    vrq::rtc::initializeEngine();
    auto kit = KitClient::make();
    return receiveAndSample(
        {[&]() -> std::optional<nlohmann::json> {
             if (!kit->localSet.load())
                 return std::nullopt;
             return kit->client->getClientSession();
         },
         [&](const std::string& answer) {
             kit->client->setRemoteSdp(answer);
             return true;
         },
         [&] { return kit->firstFrame.load(); },
         [&] { return static_cast<long>(kit->client->playView()->framesReceived()); }},
        origin, seconds);
}

std::string receiveBare(const std::string& origin, int seconds)
{
    gst_init(nullptr, nullptr);
    BareReceiver bare;
    if (!bare.started())
        return std::string(kFailurePrefix) + "the bare webrtcbin pipeline did not start";
    bare.makeOffer();
    return receiveAndSample({[&]() -> std::optional<nlohmann::json> {
                                 const auto offer = bare.offer();
                                 if (!offer)
                                     return std::nullopt;
                                 return nlohmann::json{{"type", "offer"}, {"sdp", *offer}};
                             },
                             [&](const std::string& answer) { return bare.applyAnswer(answer); },
                             [&] { return bare.firstFrame(); }, [&] { return bare.frames(); }},
                            origin, seconds);
}

// "--receive-child kit|bare ORIGIN SECONDS": one receiver in this fresh process.
int runReceiveChild(const std::vector<std::string>& arguments)
{
    const int seconds = arguments.size() == 4 ? std::atoi(arguments[3].c_str()) : 0;
    std::string line;
    if (seconds <= 0 || (arguments[1] != "kit" && arguments[1] != "bare"))
        line = std::string(kFailurePrefix) + "usage: --receive-child kit|bare ORIGIN SECONDS";
    else if (arguments[1] == "kit")
        line = receiveWithKit(arguments[2], seconds);
    else
        line = receiveBare(arguments[2], seconds);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    return line.starts_with(kFailurePrefix) ? 1 : 0;
}

// One receiver in a fresh child process against a server process of its own.
std::optional<CpuSample> receiveInChild(const char* kind, int seconds)
{
    ServerProcess server("127.0.0.1", 1920, 1080, 60);
    if (server.origin().empty()) {
        std::printf("receive 1080p60 (%s): the game server did not start\n", kind);
        return std::nullopt;
    }
    // This very program, even if its file was replaced since it started.
    ChildProcess child({"/proc/self/exe", "--receive-child", kind, server.origin(), std::to_string(seconds)});
    // Connecting, the first frame and the settling take well under a minute.
    const auto deadline = Clock::now() + std::chrono::seconds(seconds) + 60s;
    while (child.started()) {
        const auto line = child.readLine(deadline);
        if (!line)
            break;
        if (auto sample = parseSample(*line))
            return sample;
        if (line->starts_with(kFailurePrefix)) {
            std::printf("receive 1080p60 (%s): %s\n", kind, line->c_str() + std::strlen(kFailurePrefix));
            return std::nullopt;
        }
        std::fprintf(stderr, "%s\n", line->c_str());
    }
    const bool late = Clock::now() >= deadline;
    std::printf("receive 1080p60 (%s): no result %s; the receiving process %s\n", kind,
                late ? "before the deadline" : "before its output ended", child.outcome().c_str());
    return std::nullopt;
}

// CPU, decoded frames and memory of a process receiving 1080p60 from a
// separate server process: the kit against a bare webrtcbin pipeline that
// only depayloads and decodes, each in a fresh process of its own.
void benchReceiveCpu(int seconds)
{
    const auto kit = receiveInChild("kit", seconds);
    const auto bare = receiveInChild("bare", seconds);
    if (!kit || !bare)
        return;
    std::printf("receive (kit = VRQWebrtClient, bare = webrtcbin decoding into fakesink, each in a fresh process)\n");
    char name[96];
    std::snprintf(name, sizeof name, "CPU receiving 1080p60 for %d s (%% of one core)", seconds);
    printRatio(name, "%", "kit", kit->percentOfOneCore, "bare", bare->percentOfOneCore);
    // The server's source is live at 60 fps: the frames expected over the window.
    const auto sent = [](const CpuSample& s) { return 60.0 * s.wallSeconds; };
    printRatio("frames decoded / frames sent at 1080p60", "%", "kit", 100.0 * static_cast<double>(kit->frames) / sent(*kit),
               "bare", 100.0 * static_cast<double>(bare->frames) / sent(*bare));
    std::printf("    kit %ld of %.0f frames, bare %ld of %.0f frames\n", kit->frames, sent(*kit), bare->frames, sent(*bare));
    printRatio("resident memory receiving 1080p60 (MB)", "MB", "kit", kit->residentMb, "bare", bare->residentMb);
    printRatio("    peak resident memory (VmHWM)", "MB", "kit", kit->peakMb, "bare", bare->peakMb);
}

} // namespace

// Without arguments every benchmark runs; otherwise the named ones
// ("offer", "first-frame", "latency", "receive").
int main(int argc, char** argv)
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    const std::vector<std::string> chosen(argv + 1, argv + argc);
    // The receive benchmark runs each receiver in a fresh copy of this program.
    if (!chosen.empty() && chosen[0] == "--receive-child")
        return runReceiveChild(chosen);
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
        benchReceiveCpu(15);
    return 0;
}
