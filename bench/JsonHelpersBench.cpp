#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "vrq/utils/VRQJsonHelpers.h"

using nlohmann::json;

namespace {

// A heartbeat-sized message: twelve members, numbers, strings and one nested array.
json heartbeatMessage()
{
    return {
        {"timestamp", 1700000000123},
        {"fps", "59.94"},
        {"delay", "35"},
        {"rtt", 12},
        {"load_cost_time", 840},
        {"bit_rate", "10000"},
        {"packet_lost", "3"},
        {"nack", "7"},
        {"packet_received", "123456"},
        {"gpu", "43%"},
        {"input_delay", 12},
        {"rtt_detect", json::array({{{"base", 1700000000123 - 300}, {"id", "cli"}, {"s", 300}}})},
    };
}

void BM_IntForKeyVrq(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_intForKey(message, "rtt", 0));
}
BENCHMARK(BM_IntForKeyVrq)->Name("BM_IntForKey/vrq");

void BM_IntForKeyBaseline(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state) {
        const auto it = message.find("rtt");
        benchmark::DoNotOptimize(it != message.end() && it->is_number() ? it->get<std::int32_t>() : 0);
    }
}
BENCHMARK(BM_IntForKeyBaseline)->Name("BM_IntForKey/baseline");

void BM_FloatForKeyVrq(benchmark::State& state)
{
    const json infos = {{"cpu_usage", 0.43}, {"gpu_usage", "51%"}, {"screen_width", 1920}, {"screen_height", 1080}};
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_floatForKey(infos, "cpu_usage", 0.0));
}
BENCHMARK(BM_FloatForKeyVrq)->Name("BM_FloatForKey/vrq");

void BM_FloatForKeyBaseline(benchmark::State& state)
{
    const json infos = {{"cpu_usage", 0.43}, {"gpu_usage", "51%"}, {"screen_width", 1920}, {"screen_height", 1080}};
    for (auto _ : state) {
        const auto it = infos.find("cpu_usage");
        benchmark::DoNotOptimize(it != infos.end() && it->is_number() ? it->get<double>() : 0.0);
    }
}
BENCHMARK(BM_FloatForKeyBaseline)->Name("BM_FloatForKey/baseline");

void BM_StringForKeyVrq(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_stringForKey(message, "packet_received", std::nullopt));
}
BENCHMARK(BM_StringForKeyVrq)->Name("BM_StringForKey/vrq");

void BM_StringForKeyBaseline(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state) {
        const auto it = message.find("packet_received");
        benchmark::DoNotOptimize(it != message.end() && it->is_string() ? it->get<std::string>() : std::string());
    }
}
BENCHMARK(BM_StringForKeyBaseline)->Name("BM_StringForKey/baseline");

void BM_ToJsonDataVrq(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_toJsonData(message));
}
BENCHMARK(BM_ToJsonDataVrq)->Name("BM_ToJsonData/vrq");

void BM_ToJsonDataBaseline(benchmark::State& state)
{
    const json message = heartbeatMessage();
    for (auto _ : state)
        benchmark::DoNotOptimize(message.dump());
}
BENCHMARK(BM_ToJsonDataBaseline)->Name("BM_ToJsonData/baseline");

void BM_DictionaryWithJsonObjectVrq(benchmark::State& state)
{
    const std::string text = heartbeatMessage().dump();
    for (auto _ : state)
        benchmark::DoNotOptimize(vrq_dictionaryWithJsonObject(text));
}
BENCHMARK(BM_DictionaryWithJsonObjectVrq)->Name("BM_DictionaryWithJsonObject/vrq");

void BM_DictionaryWithJsonObjectBaseline(benchmark::State& state)
{
    const std::string text = heartbeatMessage().dump();
    for (auto _ : state)
        benchmark::DoNotOptimize(json::parse(text, nullptr, false));
}
BENCHMARK(BM_DictionaryWithJsonObjectBaseline)->Name("BM_DictionaryWithJsonObject/baseline");

} // namespace
