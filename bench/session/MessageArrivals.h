#pragma once

#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

// Arrival times of numbered messages ("17"), from whichever thread delivers
// them. Other messages on the same channel (the server's own) are ignored.
struct MessageArrivals {
    void record(const std::string& text)
    {
        if (text.empty() || text[0] < '0' || text[0] > '9')
            return;
        std::lock_guard lock(mutex);
        times[std::atoi(text.c_str())] = std::chrono::steady_clock::now();
    }
    std::mutex mutex;
    std::map<int, std::chrono::steady_clock::time_point> times; // guarded by mutex
};
