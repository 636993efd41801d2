#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace vrq {

// A FIFO task queue on a thread of its own. Tasks run one at a time, in the
// order they were added. Destroying the queue runs the tasks still pending,
// then joins the thread.
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return m_label; }
    void async(std::function<void()> task);
    // Runs task on the queue and waits for it. Must not be called from the queue itself.
    void sync(const std::function<void()>& task);
    bool isCurrent() const;

private:
    // Shared with the queue's thread, which may outlive the queue object when
    // the queue is destroyed from one of its own tasks.
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<std::function<void()>> tasks;
        bool stopping = false;
    };
    static void run(const std::shared_ptr<State>& state);

    std::string m_label;
    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

} // namespace vrq
