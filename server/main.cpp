// vrq-game-server: the reference game server and its back end on one loopback
// address. It answers client sessions on "POST /session", experience codes
// and reconnects (on the reconnect port), plays the game to every session
// (closing those that stop sending heartbeats), takes fault controls on
// "/control/*", tells the latest session's touch and mouse input on
// "GET /control/pointer" and ingests the signed metrics and logs. With
// --loss, --delay-ms or --jitter-ms every session's video crosses a link that
// loses and delays packets (see LinkImpairment). It runs until SIGINT or SIGTERM.
#include "ReferenceServer.h"

#include "vrq/platform/dispatch/MainLoop.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

namespace {

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int)
{
    g_stop = 1;
}

struct Arguments {
    int idleTimeoutSeconds = 10;
    double loss = 0.0;
    int delayMs = 0;
    int jitterMs = 0;
    int linkSeed = 1;
    vrqserver::ReferenceServer::Options server;
};

int usage()
{
    std::fprintf(stderr, "usage: vrq-game-server [--host 127.0.0.N] [--port N] [--reconnect-port N (7392)]\n"
                         "                       [--metric-key KEY] [--token TOKEN]\n"
                         "                       [--width W] [--height H] [--fps F] [--bitrate KBPS]\n"
                         "                       [--idle-timeout SECONDS (0: never)]\n"
                         "                       [--loss FRACTION] [--delay-ms N] [--jitter-ms N] [--link-seed N]\n");
    return 2;
}

bool setNumber(const char* text, int& value)
{
    char* end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || number < 0 || number > 1000000)
        return false;
    value = static_cast<int>(number);
    return true;
}

bool setFraction(const char* text, double& value)
{
    char* end = nullptr;
    const double number = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(number >= 0.0 && number <= 1.0))
        return false;
    value = number;
    return true;
}

bool setOption(Arguments& arguments, const std::string& name, const char* value)
{
    auto& server = arguments.server;
    auto& video = server.game.video;
    if (name == "--host")
        server.host = value;
    else if (name == "--metric-key")
        server.metricKey = value;
    else if (name == "--token")
        server.game.token = value;
    else if (name == "--port")
        return setNumber(value, server.backendPort) && server.backendPort <= 65535;
    else if (name == "--reconnect-port")
        return setNumber(value, server.reconnectPort) && server.reconnectPort <= 65535;
    else if (name == "--width")
        return setNumber(value, video.width) && video.width > 0;
    else if (name == "--height")
        return setNumber(value, video.height) && video.height > 0;
    else if (name == "--fps")
        return setNumber(value, video.fps) && video.fps > 0;
    else if (name == "--bitrate")
        return setNumber(value, video.bitrateKbps) && video.bitrateKbps > 0;
    else if (name == "--idle-timeout")
        return setNumber(value, arguments.idleTimeoutSeconds);
    else if (name == "--loss")
        return setFraction(value, arguments.loss);
    else if (name == "--delay-ms")
        return setNumber(value, arguments.delayMs);
    else if (name == "--jitter-ms")
        return setNumber(value, arguments.jitterMs);
    else if (name == "--link-seed")
        return setNumber(value, arguments.linkSeed);
    else
        return false;
    return true;
}

std::optional<Arguments> parse(int argc, char** argv)
{
    if (argc % 2 == 0)
        return std::nullopt; // a name without its value
    Arguments arguments;
    for (int i = 1; i + 1 < argc; i += 2)
        if (!setOption(arguments, argv[i], argv[i + 1]))
            return std::nullopt;
    // A session whose client went away is closed after this long without a heartbeat.
    arguments.server.game.heartbeatTimeout = std::chrono::seconds(arguments.idleTimeoutSeconds);
    return arguments;
}

} // namespace

int main(int argc, char** argv)
{
    const auto arguments = parse(argc, argv);
    if (!arguments)
        return usage();
    const auto link = vrqserver::LinkConditions::checked(arguments->loss, arguments->delayMs, arguments->jitterMs,
                                                         static_cast<std::uint32_t>(arguments->linkSeed));
    if (!link)
        return usage();
    auto server = vrqserver::ReferenceServer::start(arguments->server);
    if (!server)
        return 1; // it said why
    server->faults().setLinkConditions(*link);
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::printf("vrq-game-server: back end and metrics ingest at %s\n", server->origin().c_str());
    std::printf("vrq-game-server: reconnects on port %d of %s\n", server->reconnectPort(), server->options().host.c_str());
    if (!link->clean())
        std::printf("vrq-game-server: video link loses %.1f%% of packets, delays them %lld ms +- %lld ms\n", link->loss * 100.0,
                    static_cast<long long>(link->delay.count()), static_cast<long long>(link->jitter.count()));
    std::fflush(stdout);
    while (!g_stop)
        vrq::runMainLoopUntil([] { return g_stop != 0; }, std::chrono::milliseconds(100));
    server->stop();
    const auto& ingest = server->ingest();
    std::printf("vrq-game-server: sessions served: %zu; reconnects served: %zu; records accepted: %zu metric, %zu log; "
                "bulks rejected: %zu\n",
                server->sessionsServed(), server->reconnectsServed(), ingest.recordCount("/report_metric_bulk"),
                ingest.recordCount("/report_log_bulk"), ingest.rejectedCount());
    return 0;
}
