// vrq-game-server: the reference back end on a loopback address. For now it
// serves the metrics service's signed ingest; it runs until SIGINT or SIGTERM.
#include "HttpEndpoint.h"
#include "MetricsIngest.h"

#include <httplib.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

namespace {

volatile std::sig_atomic_t g_stop = 0;

void onSignal(int)
{
    g_stop = 1;
}

int usage()
{
    std::fprintf(stderr, "usage: vrq-game-server [--host 127.0.0.1] [--port N] [--metric-key KEY]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string host = "127.0.0.1";
    int port = 0;
    std::string key = "vrq-reference-metric-key";
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc)
            return usage();
        if (arg == "--host")
            host = argv[++i];
        else if (arg == "--port")
            port = std::atoi(argv[++i]);
        else if (arg == "--metric-key")
            key = argv[++i];
        else
            return usage();
    }
    vrqserver::HttpEndpoint endpoint(host, port);
    vrqserver::MetricsIngest ingest(key);
    ingest.install(endpoint.server());
    if (!endpoint.start()) {
        std::fprintf(stderr, "vrq-game-server: cannot bind %s:%d: %s\n", host.c_str(), port, std::strerror(errno));
        return 1;
    }
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::printf("vrq-game-server: metrics ingest at %s\n", endpoint.origin().c_str());
    std::fflush(stdout);
    while (!g_stop)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::printf("vrq-game-server: %zu metric and %zu log records accepted, %zu bulks rejected\n",
                ingest.recordCount("/report_metric_bulk"), ingest.recordCount("/report_log_bulk"),
                ingest.rejectedCount());
    return 0;
}
