// Micro-benchmarks come in pairs measured in the same run: the kit's code and
// a baseline doing the same work the plainest way (a direct nlohmann lookup,
// a plain dump(), ...). Name the two halves of a pair
//
//     BM_<Topic>/vrq         the kit's code
//     BM_<Topic>/baseline    the reference
//
// for example BENCHMARK(BM_IntForKeyVrq)->Name("BM_IntForKey/vrq"). Arguments
// and thread counts that the library appends keep pairs apart:
// "BM_X/vrq/64" pairs with "BM_X/baseline/64". After the usual table, one line
// per complete pair is printed:
//
//     <pair name>   vrq <ns>   baseline <ns>   ratio <vrq / baseline>
//
// Times are CPU nanoseconds per iteration; with --benchmark_repetitions the
// medians are used. A benchmark without a partner only appears in the table.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* kKitRole = "vrq";
constexpr const char* kBaselineRole = "baseline";

std::vector<std::string> splitName(const std::string& name)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', start)) {
        parts.push_back(name.substr(start, slash - start));
        start = slash + 1;
    }
    parts.push_back(name.substr(start));
    return parts;
}

std::string joinName(const std::vector<std::string>& parts)
{
    std::string name;
    for (const std::string& part : parts)
        name += (name.empty() ? "" : "/") + part;
    return name;
}

// The library keeps its own flag parsing private; a custom console reporter
// has to read --benchmark_color and --benchmark_counters_tabular itself.
benchmark::ConsoleReporter::OutputOptions outputOptions(int argc, char** argv)
{
    std::string_view color = "auto";
    bool tabular = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.rfind("--benchmark_color=", 0) == 0)
            color = argument.substr(argument.find('=') + 1);
        else if (argument == "--benchmark_counters_tabular" || argument == "--benchmark_counters_tabular=true")
            tabular = true;
    }
    const bool useColor = color == "auto" ? isatty(STDOUT_FILENO) != 0 : (color == "true" || color == "yes" || color == "1");
    int options = benchmark::ConsoleReporter::OO_None;
    if (useColor)
        options |= benchmark::ConsoleReporter::OO_Color;
    if (tabular)
        options |= benchmark::ConsoleReporter::OO_Tabular;
    return static_cast<benchmark::ConsoleReporter::OutputOptions>(options);
}

class PairReporter : public benchmark::ConsoleReporter {
public:
    explicit PairReporter(OutputOptions options) : ConsoleReporter(options) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            record(run);
    }

    void printPairs() const
    {
        std::printf("\n%-36s %14s %14s %8s\n", "pair", "vrq ns", "baseline ns", "ratio");
        for (const auto& [name, sample] : m_samples) {
            std::vector<std::string> parts = splitName(name);
            const auto role = std::find(parts.begin(), parts.end(), kKitRole);
            if (role == parts.end())
                continue;
            *role = kBaselineRole;
            const auto baseline = m_samples.find(joinName(parts));
            if (baseline == m_samples.end())
                continue;
            parts.erase(role);
            const double ratio = baseline->second.ns > 0 ? sample.ns / baseline->second.ns : 0;
            std::printf("%-36s %14.1f %14.1f %8.2f\n", joinName(parts).c_str(), sample.ns, baseline->second.ns, ratio);
        }
    }

private:
    struct Sample {
        double ns = 0;
        bool median = false;
    };

    void record(const Run& run)
    {
        if (run.error_occurred)
            return;
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.run_type == Run::RT_Aggregate && !median)
            return;
        Sample& sample = m_samples[run.run_name.str()];
        if (sample.median && !median)
            return;
        sample = {run.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit), median};
    }

    std::map<std::string, Sample> m_samples;
};

} // namespace

int main(int argc, char** argv)
{
    PairReporter reporter(outputOptions(argc, argv));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::fflush(stdout);
    reporter.printPairs();
    benchmark::Shutdown();
    return 0;
}
