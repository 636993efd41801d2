#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/dispatch/Timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using vrq::Timer;

TEST(TimerTest, OneShotOnMainRunsOnceOnTheMainThread)
{
    int fired = 0;
    bool onMain = false;
    auto timer = Timer::onMain(10ms, false, [&] {
        ++fired;
        onMain = vrq::isMainThread();
    });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return fired > 0; }, 2s));
    vrq::runMainLoopUntil([] { return false; }, 60ms);
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(onMain);
    EXPECT_FALSE(timer->isValid());
}

TEST(TimerTest, RepeatingTimerRepeatsUntilCancelledFromItsHandler)
{
    int fired = 0;
    std::shared_ptr<Timer> timer;
    timer = Timer::onMain(5ms, true, [&] {
        if (++fired == 3)
            timer->cancel();
    });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return fired >= 3; }, 2s));
    vrq::runMainLoopUntil([] { return false; }, 50ms);
    EXPECT_EQ(fired, 3);
}

TEST(TimerTest, CancelFromAnotherThreadWaitsForARunningHandler)
{
    vrq::SerialQueue queue("test.timer");
    std::atomic<bool> inHandler{false};
    std::atomic<bool> handlerDone{false};
    auto timer = Timer::onQueue(queue, 1ms, false, [&] {
        inHandler = true;
        std::this_thread::sleep_for(50ms);
        handlerDone = true;
    });
    while (!inHandler)
        std::this_thread::sleep_for(1ms);
    timer->cancel();
    EXPECT_TRUE(handlerDone) << "cancel returned while the handler was still running";
}

TEST(TimerTest, CancelledTimerNeverFiresAndReleasesItsHandler)
{
    auto token = std::make_shared<int>(1);
    std::atomic<int> fired{0};
    auto timer = Timer::onGlobal(20ms, true, [&fired, token] { ++fired; });
    std::weak_ptr<int> watch = token;
    token.reset();
    timer->cancel();
    EXPECT_TRUE(watch.expired()) << "the handler's captures must be released at cancel";
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(fired.load(), 0);
}

TEST(TimerTest, ATickIsNotQueuedTwiceWhileTheTargetIsBusy)
{
    // The main loop is not iterated for a while: ticks coalesce instead of piling up.
    int fired = 0;
    auto timer = Timer::onMain(5ms, true, [&] { ++fired; });
    std::this_thread::sleep_for(100ms);
    vrq::runMainLoopUntil([&] { return fired > 0; }, 1s);
    EXPECT_EQ(fired, 1);
    timer->cancel();
}

TEST(TimerTest, OnAManualClockTimersFireWhenTimeIsMovedAndEnormousDelaysNever)
{
    Timer::setManualClock(true);
    std::atomic<int> oneShot{0}, repeating{0}, never{0};
    auto first = Timer::onGlobal(1000ms, false, [&] { ++oneShot; });
    auto second = Timer::onGlobal(300ms, true, [&] { ++repeating; });
    auto third = Timer::onGlobal(Timer::Duration::max(), false, [&] { ++never; });
    auto fourth = Timer::onGlobal(std::chrono::hours(24 * 365 * 400), true, [&] { ++never; });

    Timer::advanceClock(999ms);
    vrq::runMainLoopUntil([&] { return repeating.load() >= 1; }, 2s);
    EXPECT_EQ(oneShot.load(), 0) << "time stands still until it is moved";
    for (int step = 0; step < 10; ++step) {
        Timer::advanceClock(300ms);
        const int expected = step + 2;
        ASSERT_TRUE(vrq::runMainLoopUntil([&] { return repeating.load() >= expected; }, 2s)) << step;
    }
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return oneShot.load() == 1; }, 2s));
    Timer::advanceClock(std::chrono::hours(24 * 365 * 100));
    vrq::runMainLoopUntil([] { return false; }, 50ms);
    EXPECT_EQ(never.load(), 0);
    EXPECT_EQ(oneShot.load(), 1);
    Timer::setManualClock(false);
}
