// vrq-game-server: the reference game server and its back end on one loopback
// address. It answers client sessions on "POST /session", plays the test scene
// to every session (closing those that stop sending heartbeats) and ingests
// the signed metrics and logs. It runs until SIGINT or SIGTERM.
#include "GameServer.h"
#include "HttpEndpoint.h"
#include "MetricsIngest.h"
#include "SessionBackend.h"

#include "platform/MainLoop.h"

#include <httplib.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace {

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int)
{
    g_stop = 1;
}

struct Arguments {
    int port = 0;
    int idleTimeoutSeconds = 10;
    std::string metricKey = "vrq-reference-metric-key";
    vrqserver::GameServer::Options game;
};

int usage()
{
    std::fprintf(stderr, "usage: vrq-game-server [--host 127.0.0.N] [--port N] [--metric-key KEY] [--token TOKEN]\n"
                         "                       [--width W] [--height H] [--fps F] [--bitrate KBPS]\n"
                         "                       [--idle-timeout SECONDS (0: never)]\n");
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

std::optional<Arguments> parse(int argc, char** argv)
{
    Arguments arguments;
    auto& video = arguments.game.video;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        bool ok = true;
        if (name == "--host")
            arguments.game.host = value;
        else if (name == "--metric-key")
            arguments.metricKey = value;
        else if (name == "--token")
            arguments.game.token = value;
        else if (name == "--port")
            ok = setNumber(value, arguments.port);
        else if (name == "--width")
            ok = setNumber(value, video.width) && video.width > 0;
        else if (name == "--height")
            ok = setNumber(value, video.height) && video.height > 0;
        else if (name == "--fps")
            ok = setNumber(value, video.fps) && video.fps > 0;
        else if (name == "--bitrate")
            ok = setNumber(value, video.bitrateKbps) && video.bitrateKbps > 0;
        else if (name == "--idle-timeout")
            ok = setNumber(value, arguments.idleTimeoutSeconds);
        else
            ok = false;
        if (!ok)
            return std::nullopt;
    }
    if (argc % 2 == 0)
        return std::nullopt; // a name without its value
    // A session whose client went away is closed after this long without a heartbeat.
    arguments.game.heartbeatTimeout = std::chrono::seconds(arguments.idleTimeoutSeconds);
    return arguments;
}

} // namespace

int main(int argc, char** argv)
{
    const auto arguments = parse(argc, argv);
    if (!arguments)
        return usage();
    const std::string& host = arguments->game.host;
    auto gameServer = vrqserver::GameServer::start(arguments->game);
    if (!gameServer) {
        std::fprintf(stderr, "vrq-game-server: the media engine cannot start\n");
        return 1;
    }
    vrqserver::HttpEndpoint endpoint(host, arguments->port);
    vrqserver::MetricsIngest ingest(arguments->metricKey);
    ingest.install(endpoint.server());
    vrqserver::RemoteSessionFields fields;
    fields.metricKey = arguments->metricKey;
    fields.serverIp = host;
    vrqserver::SessionBackend backend(*gameServer, fields);
    backend.install(endpoint.server());
    if (!endpoint.start()) {
        std::fprintf(stderr, "vrq-game-server: cannot bind %s:%d: %s\n", host.c_str(), arguments->port,
                     std::strerror(errno));
        return 1;
    }
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::printf("vrq-game-server: back end and metrics ingest at %s\n", endpoint.origin().c_str());
    std::fflush(stdout);
    while (!g_stop)
        vrq::runMainLoopUntil([] { return g_stop != 0; }, std::chrono::milliseconds(100));
    endpoint.stop();
    gameServer->stop();
    std::printf("vrq-game-server: sessions served: %zu; records accepted: %zu metric, %zu log; bulks rejected: %zu\n",
                backend.sessionsServed(), ingest.recordCount("/report_metric_bulk"),
                ingest.recordCount("/report_log_bulk"), ingest.rejectedCount());
    return 0;
}
