#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/GuardedTask.h"
#include "vrq/platform/dispatch/Timer.h"

#include <glib.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace vrq {
namespace {

// The process's initial thread: static initialisation runs there.
const std::thread::id g_initialThread = std::this_thread::get_id();

// The default context (and its wakeup descriptor) is made before any other
// thread exists. Made lazily, its creation and a later wake-up from another
// thread are ordered only by GLib's own locks, which race detectors cannot see.
GMainContext* const g_defaultContext = g_main_context_default();

// Tasks for the main thread wait in a queue of our own, guarded by a
// std::mutex, and one GSource made at start-up runs them. Other threads only
// append and wake the context: no GLib object changes hands between threads
// through GLib's own locks, which race detectors cannot see.
class MainQueue {
public:
    static MainQueue& shared()
    {
        static auto* queue = new MainQueue; // lives for the whole process
        return *queue;
    }

    void post(std::function<void()> task)
    {
        {
            std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        g_main_context_wakeup(g_main_context_default());
    }

private:
    MainQueue()
    {
        static GSourceFuncs funcs = {prepare, check, dispatch, nullptr, nullptr, nullptr};
        GSource* source = g_source_new(&funcs, sizeof(GSource));
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_attach(source, g_main_context_default());
        g_source_unref(source);
    }

    bool hasTasks()
    {
        std::lock_guard lock(m_mutex);
        return !m_tasks.empty();
    }

    static gboolean prepare(GSource*, gint* timeout)
    {
        *timeout = -1;
        return shared().hasTasks();
    }

    static gboolean check(GSource*) { return shared().hasTasks(); }

    // Runs the tasks queued so far, in order; later ones wait for the next iteration.
    static gboolean dispatch(GSource*, GSourceFunc, gpointer)
    {
        std::deque<std::function<void()>> batch;
        {
            std::lock_guard lock(shared().m_mutex);
            batch.swap(shared().m_tasks);
        }
        for (auto& task : batch)
            runGuarded("the main thread", task);
        return G_SOURCE_CONTINUE;
    }

    std::mutex m_mutex;
    std::deque<std::function<void()>> m_tasks;
};

// Made at start-up on the initial thread, after the default context.
MainQueue& g_mainQueue = MainQueue::shared();

// A small fixed pool that stands for the global default-priority queue. It
// lives for the whole process: threads are never joined, so tasks still
// queued at exit are simply not run.
class GlobalPool {
public:
    static GlobalPool& shared()
    {
        static auto* pool = new GlobalPool(2);
        return *pool;
    }

    void async(std::function<void()> task)
    {
        {
            std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        m_wake.notify_one();
    }

private:
    explicit GlobalPool(int threads)
    {
        for (int i = 0; i < threads; ++i)
            std::thread([this] { run(); }).detach();
    }

    void run()
    {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(m_mutex);
                m_wake.wait(lock, [this] { return !m_tasks.empty(); });
                task = std::move(m_tasks.front());
                m_tasks.pop_front();
            }
            runGuarded("the global queue", task);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
};

} // namespace

bool isMainThread()
{
    GMainContext* context = g_defaultContext;
    if (g_main_context_is_owner(context))
        return true;
    if (std::this_thread::get_id() != g_initialThread)
        return false;
    // The initial thread counts while no other thread iterates the context.
    if (!g_main_context_acquire(context))
        return false;
    g_main_context_release(context);
    return true;
}

void assertMainThread()
{
    if (!isMainThread())
        throw VRQAssertionError("need run on main thread.");
}

void dispatchMainAsync(std::function<void()> fn)
{
    g_mainQueue.post(std::move(fn));
}

void dispatchGlobalAsync(std::function<void()> fn)
{
    GlobalPool::shared().async(std::move(fn));
}

void wakeMainLoop()
{
    g_main_context_wakeup(g_main_context_default());
}

bool runMainLoopUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout)
{
    GMainContext* context = g_main_context_default();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // A periodic wake-up so that a predicate that depends on other threads is re-checked.
    GSource* tick = g_timeout_source_new(5);
    g_source_set_callback(tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    g_source_attach(tick, context);
    bool done = predicate();
    while (!done && std::chrono::steady_clock::now() < deadline) {
        g_main_context_iteration(context, TRUE);
        done = predicate();
    }
    g_source_destroy(tick);
    g_source_unref(tick);
    return done;
}

std::int64_t nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(Timer::wallNow().time_since_epoch()).count();
}

} // namespace vrq
