#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

// Figures and printing shared by the session benchmarks. Each result is one
// line: a measured value, its baseline from the same run, and their ratio.

inline double msSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline double msBetween(std::chrono::steady_clock::time_point from, std::chrono::steady_clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// The value at fraction p (0.5: the median) of the sorted values; 0 when there are none.
inline double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

inline void printRatio(const char* name, const char* unit, const char* valueName, double value, const char* baselineName,
                       double baseline)
{
    std::printf("%-44s %s %9.2f %s   %s %9.2f %s   ratio %.2f\n", name, valueName, value, unit, baselineName, baseline, unit,
                baseline > 0 ? value / baseline : 0.0);
}

// The kit against the engine's own peer.
inline void printPair(const char* name, const char* unit, double kit, double raw)
{
    printRatio(name, unit, "kit", kit, "raw", raw);
}
