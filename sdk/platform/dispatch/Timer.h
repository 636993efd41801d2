#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace vrq {

class SerialQueue;

// A one-shot or repeating timer that runs its handler on the main loop, on a
// serial queue or on the global queue. The handler may run up to `leeway`
// late, so that timers due close together fire together.
//
// cancel() may be called from any thread. When it returns the handler is not
// running (unless cancel was called from inside the handler) and never runs
// again. Destroying the last reference cancels the timer.
class Timer {
public:
    using Duration = std::chrono::milliseconds;
    enum class Target { Main, Global, Queue };

    static std::shared_ptr<Timer> onMain(Duration interval, bool repeats, std::function<void()> handler,
                                         Duration leeway = Duration(0));
    static std::shared_ptr<Timer> onGlobal(Duration interval, bool repeats, std::function<void()> handler,
                                           Duration leeway = Duration(0));
    // The queue must outlive the timer.
    static std::shared_ptr<Timer> onQueue(SerialQueue& queue, Duration interval, bool repeats,
                                          std::function<void()> handler, Duration leeway = Duration(0));

    // The clock every timer runs by: steady time, unless a test takes manual
    // control. Then time stands still until advanceClock moves it, and the
    // timers due by then fire (a repeating timer whose last tick has not run
    // yet fires once, as on the steady clock).
    static std::chrono::steady_clock::time_point now();
    // The wall clock, which under manual control stands still and moves
    // with advanceClock too.
    static std::chrono::system_clock::time_point wallNow();
    static bool isClockManual();
    static void setManualClock(bool manual);
    static void advanceClock(Duration by);

    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void cancel();
    bool isValid() const;

    struct State;

private:
    explicit Timer(std::shared_ptr<State> state);
    std::shared_ptr<State> m_state;
};

} // namespace vrq
