#include "vrq/platform/dispatch/Timer.h"

#include "vrq/platform/dispatch/GuardedTask.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace vrq {

using Clock = std::chrono::steady_clock;

namespace {

// Manual time, for tests: while set, timers read gManualNow instead of the clock.
std::mutex gClockMutex;
std::atomic<bool> gManualClock{false}; // written under gClockMutex
Clock::time_point gManualNow;          // guarded by gClockMutex
Clock::time_point gManualStart;        // guarded by gClockMutex: when manual time began,
std::chrono::system_clock::time_point gManualWallStart; // on both clocks

// a + b, held at time_point::max() instead of overflowing: an interval of
// centuries means "never", not "at once".
Clock::time_point later(Clock::time_point a, Timer::Duration b)
{
    const auto room = std::chrono::duration_cast<Timer::Duration>(Clock::time_point::max() - a);
    return b >= room ? Clock::time_point::max() : a + b;
}

} // namespace

struct Timer::State {
    Target target = Target::Main;
    SerialQueue* queue = nullptr;
    Duration interval{0};
    Duration leeway{0};
    bool repeats = false;

    std::mutex mutex;
    std::condition_variable idle;
    std::function<void()> handler;
    Clock::time_point due;
    bool cancelled = false;
    bool firePending = false; // a tick was posted to the target and has not run yet
    bool running = false;
    std::thread::id runningThread;
};

namespace {

using StatePtr = std::shared_ptr<Timer::State>;

void fire(const StatePtr& state)
{
    {
        std::lock_guard lock(state->mutex);
        state->firePending = false;
        if (state->cancelled)
            return;
        state->running = true;
        state->runningThread = std::this_thread::get_id();
        if (!state->repeats)
            state->cancelled = true;
    }
    runGuarded("a timer", state->handler);
    std::function<void()> released;
    {
        std::lock_guard lock(state->mutex);
        state->running = false;
        if (state->cancelled)
            released = std::move(state->handler);
    }
    state->idle.notify_all();
}

void post(const StatePtr& state)
{
    auto task = [state] { fire(state); };
    switch (state->target) {
    case Timer::Target::Main:
        dispatchMainAsync(std::move(task));
        break;
    case Timer::Target::Global:
        dispatchGlobalAsync(std::move(task));
        break;
    case Timer::Target::Queue:
        state->queue->async(std::move(task));
        break;
    }
}

// One thread keeps every timer's deadline and posts each tick to its target.
class Scheduler {
public:
    static Scheduler& shared()
    {
        static auto* scheduler = new Scheduler; // lives for the whole process
        return *scheduler;
    }

    void add(StatePtr state)
    {
        {
            std::lock_guard lock(m_mutex);
            m_timers.push_back(std::move(state));
        }
        m_wake.notify_one();
    }

    void wake() { m_wake.notify_one(); }

    // Posts what is due now, on the calling thread (the manual clock moved).
    void dispatchNow()
    {
        std::lock_guard lock(m_mutex);
        dispatchDue(Timer::now());
    }

private:
    Scheduler()
    {
        std::thread([this] { run(); }).detach();
    }

    void run()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            dispatchDue(Timer::now());
            const auto deadline = nextDeadline();
            if (m_timers.empty() || deadline == Clock::time_point::max() || Timer::isClockManual())
                m_wake.wait(lock);
            else
                m_wake.wait_until(lock, deadline);
        }
    }

    // Fires every timer that is due. Those due a little later than the first
    // deadline wait for their own leeway at most.
    void dispatchDue(Clock::time_point now)
    {
        std::vector<StatePtr> toPost;
        auto keep = m_timers.begin();
        for (auto& state : m_timers) {
            std::lock_guard stateLock(state->mutex);
            if (state->cancelled && !state->running)
                continue;
            if (state->cancelled) {
                *keep++ = std::move(state);
                continue;
            }
            if (state->due <= now) {
                if (!state->firePending) {
                    state->firePending = true;
                    toPost.push_back(state);
                }
                if (state->repeats)
                    state->due = std::max(later(state->due, state->interval), later(now, std::chrono::milliseconds(1)));
                else
                    state->due = Clock::time_point::max();
            }
            *keep++ = std::move(state);
        }
        m_timers.erase(keep, m_timers.end());
        for (auto& state : toPost)
            post(state);
    }

    Clock::time_point nextDeadline()
    {
        auto deadline = Clock::time_point::max();
        for (auto& state : m_timers) {
            std::lock_guard stateLock(state->mutex);
            if (!state->cancelled && state->due != Clock::time_point::max())
                deadline = std::min(deadline, later(state->due, state->leeway));
        }
        return deadline;
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<StatePtr> m_timers;
};

std::shared_ptr<Timer::State> makeState(Timer::Target target, SerialQueue* queue, Timer::Duration interval,
                                        bool repeats, std::function<void()> handler, Timer::Duration leeway)
{
    auto state = std::make_shared<Timer::State>();
    state->target = target;
    state->queue = queue;
    state->interval = std::max(interval, Timer::Duration(0));
    state->repeats = repeats && interval > Timer::Duration(0);
    state->leeway = std::max(leeway, Timer::Duration(0));
    state->handler = std::move(handler);
    state->due = later(Timer::now(), state->interval);
    return state;
}

} // namespace

std::shared_ptr<Timer> Timer::onMain(Duration interval, bool repeats, std::function<void()> handler, Duration leeway)
{
    auto state = makeState(Target::Main, nullptr, interval, repeats, std::move(handler), leeway);
    Scheduler::shared().add(state);
    return std::shared_ptr<Timer>(new Timer(std::move(state)));
}

std::shared_ptr<Timer> Timer::onGlobal(Duration interval, bool repeats, std::function<void()> handler,
                                       Duration leeway)
{
    auto state = makeState(Target::Global, nullptr, interval, repeats, std::move(handler), leeway);
    Scheduler::shared().add(state);
    return std::shared_ptr<Timer>(new Timer(std::move(state)));
}

std::shared_ptr<Timer> Timer::onQueue(SerialQueue& queue, Duration interval, bool repeats,
                                      std::function<void()> handler, Duration leeway)
{
    auto state = makeState(Target::Queue, &queue, interval, repeats, std::move(handler), leeway);
    Scheduler::shared().add(state);
    return std::shared_ptr<Timer>(new Timer(std::move(state)));
}

Clock::time_point Timer::now()
{
    if (!gManualClock.load())
        return Clock::now();
    std::lock_guard lock(gClockMutex);
    return gManualClock ? gManualNow : Clock::now();
}

std::chrono::system_clock::time_point Timer::wallNow()
{
    if (!gManualClock.load())
        return std::chrono::system_clock::now();
    std::lock_guard lock(gClockMutex);
    if (!gManualClock)
        return std::chrono::system_clock::now();
    return gManualWallStart + std::chrono::duration_cast<std::chrono::system_clock::duration>(gManualNow - gManualStart);
}

bool Timer::isClockManual()
{
    return gManualClock.load();
}

void Timer::setManualClock(bool manual)
{
    {
        std::lock_guard lock(gClockMutex);
        if (manual && !gManualClock) {
            gManualNow = gManualStart = Clock::now();
            gManualWallStart = std::chrono::system_clock::now();
        }
        gManualClock = manual;
    }
    Scheduler::shared().wake();
}

void Timer::advanceClock(Duration by)
{
    {
        std::lock_guard lock(gClockMutex);
        if (!gManualClock)
            return;
        gManualNow = later(gManualNow, by);
    }
    Scheduler::shared().dispatchNow();
}

Timer::Timer(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
}

Timer::~Timer()
{
    cancel();
}

void Timer::cancel()
{
    std::function<void()> released;
    {
        std::unique_lock lock(m_state->mutex);
        m_state->cancelled = true;
        const bool fromHandler = m_state->running && m_state->runningThread == std::this_thread::get_id();
        if (fromHandler)
            return; // fire() releases the handler once it returns
        m_state->idle.wait(lock, [this] { return !m_state->running; });
        released = std::move(m_state->handler);
    }
    Scheduler::shared().wake();
}

bool Timer::isValid() const
{
    std::lock_guard lock(m_state->mutex);
    return !m_state->cancelled;
}

} // namespace vrq
