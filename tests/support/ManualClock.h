#pragma once

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/Timer.h"

#include <chrono>

namespace vrqtest {

// Takes the timers' clock in hand for one test: time passes only when the
// test says so, and what falls due runs at once.
class ManualClock {
public:
    ManualClock() { vrq::Timer::setManualClock(true); }
    ~ManualClock() { vrq::Timer::setManualClock(false); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    // Moves time on in steps, and after each step runs the main-thread work
    // that fell due (work of the background queues runs on its own threads).
    static void advance(std::chrono::milliseconds by, std::chrono::milliseconds step = std::chrono::milliseconds(100))
    {
        for (std::chrono::milliseconds passed{0}; passed < by; passed += step) {
            vrq::Timer::advanceClock(std::min(step, by - passed));
            drainMainThread();
        }
    }

    // Runs every task posted to the main thread so far.
    static void drainMainThread()
    {
        bool reached = false;
        vrq::dispatchMainAsync([&reached] { reached = true; });
        vrq::runMainLoopUntil([&reached] { return reached; }, std::chrono::seconds(10));
    }
};

} // namespace vrqtest
