#include "vrq/platform/dispatch/SerialQueue.h"

#include "vrq/platform/dispatch/GuardedTask.h"

#include <exception>

namespace vrq {

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label))
    , m_state(std::make_shared<State>())
    , m_thread([state = m_state] { run(state); })
{
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->wake.notify_one();
    if (isCurrent())
        m_thread.detach(); // destroyed by one of its own tasks: the thread drains and ends alone
    else
        m_thread.join();
}

void SerialQueue::async(std::function<void()> task)
{
    // The task may destroy this queue as soon as it is queued: only the shared state is touched after that.
    const std::shared_ptr<State> state = m_state;
    {
        std::lock_guard lock(state->mutex);
        state->tasks.push_back(std::move(task));
    }
    state->wake.notify_one();
}

void SerialQueue::sync(const std::function<void()>& task)
{
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    std::exception_ptr thrown;
    async([&] {
        try {
            task();
        } catch (...) {
            thrown = std::current_exception();
        }
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
    // The caller waited for the task: what it threw is the caller's.
    if (thrown)
        std::rethrow_exception(thrown);
}

bool SerialQueue::isCurrent() const
{
    return std::this_thread::get_id() == m_thread.get_id();
}

void SerialQueue::run(const std::shared_ptr<State>& state)
{
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(state->mutex);
            state->wake.wait(lock, [&] { return state->stopping || !state->tasks.empty(); });
            if (state->tasks.empty())
                return;
            task = std::move(state->tasks.front());
            state->tasks.pop_front();
        }
        runGuarded("a serial queue", task);
    }
}

} // namespace vrq
