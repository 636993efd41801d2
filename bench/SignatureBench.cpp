// Signing a metric bulk: the kit signs at most the first 128 bytes; the
// baseline is a plain HMAC-SHA256 over the whole body, written as hex.
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

std::string metricBulk()
{
    nlohmann::json bulk = nlohmann::json::array();
    for (int i = 0; i < 10; ++i)
        bulk.push_back({{"user_id", "user-123"}, {"request_id", "req-456"}, {"timestamp", 1700000000000 + i},
                        {"fps", 59.94}, {"rtt", 23}, {"bit_rate", 8000}, {"packet_lost", 0}, {"gpu", "35%"}});
    return nlohmann::json{{"metric", "cg_client_stat"}, {"bulk", bulk}}.dump();
}

void BM_MetricSignatureVrq(benchmark::State& state)
{
    VRQHttpHelper::setMetricSigKey("bench-key");
    const std::string body = metricBulk();
    for (auto _ : state)
        benchmark::DoNotOptimize(VRQHttpHelper::calcMetricSigWithData(body));
}
BENCHMARK(BM_MetricSignatureVrq)->Name("BM_MetricSignature/vrq");

void BM_MetricSignatureBaseline(benchmark::State& state)
{
    const std::string body = metricBulk();
    for (auto _ : state) {
        const auto mac = vrq::hmacSha256("bench-key", body);
        benchmark::DoNotOptimize(vrq::toHex(mac.data(), mac.size()));
    }
}
BENCHMARK(BM_MetricSignatureBaseline)->Name("BM_MetricSignature/baseline");

// The heartbeat as built and serialised every second, against the same text
// written with snprintf.
void BM_HeartbeatMessageVrq(benchmark::State& state)
{
    auto& monitor = VRQSDKMonitor::sharedInstance();
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_toJsonData(monitor.createHeartbeatMessage()));
}
BENCHMARK(BM_HeartbeatMessageVrq)->Name("BM_HeartbeatMessage/vrq");

void BM_HeartbeatMessageBaseline(benchmark::State& state)
{
    char text[512];
    long long now = 1700000000000;
    for (auto _ : state) {
        ++now;
        const int n = std::snprintf(text, sizeof text,
                                    "{\"bit_rate\":\"%u\",\"delay\":\"%u\",\"fps\":\"%.2f\",\"gpu\":\"%s\",\"input_delay\":%u,"
                                    "\"load_cost_time\":%d,\"nack\":\"%u\",\"packet_lost\":\"%u\",\"packet_received\":\"%u\","
                                    "\"rtt\":%u,\"rtt_detect\":[{\"base\":%lld,\"id\":\"cli\",\"s\":300}],\"timestamp\":%lld}",
                                    0u, 0u, 0.0, "", 0u, 0, 0u, 0u, 0u, 0u, now - 300, now);
        benchmark::DoNotOptimize(std::string(text, static_cast<std::size_t>(n)));
    }
}
BENCHMARK(BM_HeartbeatMessageBaseline)->Name("BM_HeartbeatMessage/baseline");

} // namespace
