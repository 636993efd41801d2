// vrq-play: the demo host application.
//
// Until the kit's transport and player are in place, it plays the kit's
// monitoring path end to end, as a host would use it: it sets up logging,
// starts a monitored session, samples it every second, stops it and waits for
// the last signed metric and log uploads to reach the metrics service (the
// bundled one on loopback by default, or --metrics ORIGIN).
#include "HttpEndpoint.h"
#include "MetricsIngest.h"

#include "log/VRQLogDelegate.h"
#include "log/VRQLogManager.h"
#include "monitor/VRQSDKMonitor.h"
#include "platform/HttpTransport.h"
#include "platform/MainLoop.h"
#include "platform/Timer.h"
#include "platform/UserDefaults.h"
#include "utils/VRQHttpHelper.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

struct Options {
    int durationSeconds = 5;
    std::string metricsOrigin;
    std::string metricKey = "vrq-reference-metric-key";
    bool jsonEvents = false;
};

class PrintingLogDelegate : public VRQLogDelegate {
public:
    void logWithLevel(int level, const std::string& log) override { std::fprintf(stderr, "log[%d] %s\n", level, log.c_str()); }
};

std::optional<Options> parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::optional<std::string> {
            return i + 1 < argc ? std::optional<std::string>(argv[++i]) : std::nullopt;
        };
        std::optional<std::string> v;
        if (arg == "--headless")
            continue;
        if (arg == "--duration" && (v = value()))
            options.durationSeconds = std::max(1, std::atoi(v->c_str()));
        else if (arg == "--metrics" && (v = value()))
            options.metricsOrigin = *v;
        else if (arg == "--metric-key" && (v = value()))
            options.metricKey = *v;
        else if (arg == "--events" && (v = value()) && *v == "json")
            options.jsonEvents = true;
        else
            return std::nullopt;
    }
    return options;
}

void emit(const Options& options, const std::string& event, const nlohmann::json& data)
{
    if (options.jsonEvents)
        std::cout << nlohmann::json{{"event", event}, {"data", data}}.dump() << std::endl;
    else
        std::cout << event << ": " << data.dump() << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    const auto options = parse(argc, argv);
    if (!options) {
        std::cerr << "usage: vrq-play [--duration SECONDS] [--metrics ORIGIN] [--metric-key KEY] [--events json] "
                     "[--headless]\n";
        return 2;
    }

    PrintingLogDelegate logPrinter;
    auto& logs = VRQLogManager::sharedManager();
    logs.initSDK((vrq::documentsDirectory() / "vrq_logs").string(), VRQLogManager::kLogFileSize, 2);
    logs.setLogDelegate(&logPrinter, 2);

    std::unique_ptr<vrqserver::HttpEndpoint> endpoint;
    std::unique_ptr<vrqserver::MetricsIngest> ingest;
    std::string origin = options->metricsOrigin;
    if (origin.empty()) {
        endpoint = std::make_unique<vrqserver::HttpEndpoint>("127.0.0.1", 0);
        ingest = std::make_unique<vrqserver::MetricsIngest>(options->metricKey);
        ingest->install(endpoint->server());
        if (!endpoint->start()) {
            std::cerr << "vrq-play: cannot start the bundled metrics service on loopback\n";
            return 1;
        }
        origin = endpoint->origin();
    }
    emit(*options, "metrics", {{"origin", origin}});
    VRQHttpHelper::setBaseHost(origin);
    VRQHttpHelper::setMetricSigKey(options->metricKey);

    auto& monitor = VRQSDKMonitor::sharedInstance();
    const nlohmann::json session = {{"server_ip", "127.0.0.1"}, {"region", "loopback"}, {"request_id", "play-" + std::to_string(vrq::nowMs())},
                                    {"user_id", "vrq-play"},    {"game_id", "reference"}, {"app_id", 1}};
    monitor.resetWithSession(session);
    monitor.onConnectSuccess();
    emit(*options, "session", session);

    int ticks = 0;
    auto sampler = vrq::Timer::onMain(std::chrono::seconds(1), true, [&] {
        ++ticks;
        emit(*options, "heartbeat", monitor.createHeartbeatMessage());
    });
    vrq::runMainLoopUntil([&] { return ticks >= options->durationSeconds; }, std::chrono::seconds(options->durationSeconds + 5));
    sampler->cancel();

    monitor.onStopGame(19000);
    monitor.waitForPendingReports();
    // The last uploads are given a bounded time to arrive.
    vrq::runMainLoopUntil([] { return vrq::HttpTransport::shared().pendingCount() == 0; }, std::chrono::seconds(5));

    if (!ingest) {
        emit(*options, "stopped", {{"ticks", ticks}});
        return 0;
    }
    const nlohmann::json summary = {{"ticks", ticks},
                                    {"metric_records", ingest->recordCount("/report_metric_bulk")},
                                    {"log_records", ingest->recordCount("/report_log_bulk")},
                                    {"rejected_bulks", ingest->rejectedCount()}};
    emit(*options, "stopped", summary);
    const bool ok = ingest->recordCount("/report_metric_bulk") > 0 && ingest->rejectedCount() == 0;
    return ok ? 0 : 1;
}
