#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/dispatch/Timer.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

TEST(SerialQueueTest, RunsTasksInOrderOnOneThreadAndDrainsAtDestruction)
{
    std::vector<int> order;
    std::thread::id first;
    bool sameThread = true;
    {
        vrq::SerialQueue queue("test.serial");
        for (int i = 0; i < 100; ++i)
            queue.async([&, i] {
                if (i == 0)
                    first = std::this_thread::get_id();
                sameThread = sameThread && std::this_thread::get_id() == first;
                order.push_back(i);
            });
    }
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_TRUE(sameThread);
}

TEST(SerialQueueTest, MayBeDestroyedByItsOwnTask)
{
    auto queue = std::make_shared<vrq::SerialQueue>("test.self");
    std::atomic<bool> ran{false};
    auto* raw = queue.get();
    raw->async([queue = std::move(queue), &ran]() mutable {
        ran = true;
        queue.reset();
    });
    for (int i = 0; i < 200 && !ran; ++i)
        std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(ran);
}

TEST(MainLoopTest, DispatchMainAsyncRunsLaterInOrderOnTheMainThread)
{
    std::vector<int> order;
    bool allOnMain = true;
    vrq::dispatchMainAsync([&] { order.push_back(-1); });
    EXPECT_TRUE(order.empty()) << "dispatchMainAsync must not run inline";
    // Queued from another thread after the first task: they run after it, in their order.
    vrq::dispatchGlobalAsync([&] {
        for (int i = 0; i < 3; ++i)
            vrq::dispatchMainAsync([&, i] {
                allOnMain = allOnMain && vrq::isMainThread();
                order.push_back(i);
            });
    });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return order.size() == 4; }, 2s));
    EXPECT_TRUE(allOnMain);
    EXPECT_EQ(order, (std::vector<int>{-1, 0, 1, 2}));
}

TEST(MainLoopTest, AssertionFailsOffTheMainThread)
{
    EXPECT_NO_THROW(vrq::assertMainThread());
    std::string message;
    std::thread([&] {
        try {
            vrq::assertMainThread();
        } catch (const vrq::VRQAssertionError& error) {
            message = error.what();
        }
    }).join();
    EXPECT_EQ(message, "need run on main thread.");
}

// A task that throws (a host callback, say) is logged and dropped; what runs
// there next still runs, and a timer whose handler threw can be cancelled.
TEST(GuardedTaskTest, AThrowingTaskIsLoggedAndEveryQueueGoesOn)
{
    vrqtest::LogCapture log;
    std::atomic<int> after{0};
    vrq::SerialQueue serial("test.throwing");
    const auto thrower = [] { throw std::runtime_error("host bug"); };
    vrq::dispatchMainAsync(thrower);
    vrq::dispatchMainAsync([&] { ++after; });
    vrq::dispatchGlobalAsync(thrower);
    vrq::dispatchGlobalAsync(thrower); // both pool threads meet one
    vrq::dispatchGlobalAsync([&] { ++after; });
    vrq::dispatchGlobalAsync([&] { ++after; });
    serial.async([] { throw 7; });
    serial.async([&] { ++after; });
    auto timer = vrq::Timer::onMain(1ms, false, thrower);
    const auto thrown = [&] {
        const auto lines = log.lines();
        return std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.second.find(" threw") != std::string::npos; });
    };
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return after == 4 && thrown() == 5; }, 5s)) << after << " " << thrown();
    timer->cancel();
    EXPECT_THROW(serial.sync([] { throw std::logic_error("the caller's own"); }), std::logic_error);
    for (const char* where : {"the main thread", "the global queue", "a serial queue", "a timer"})
        EXPECT_TRUE(log.contains(std::string("a task on ") + where + " threw")) << where;
    EXPECT_TRUE(log.contains("threw: host bug; it is dropped and the queue goes on"));
}
