#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vrq {

// Bounds what one stream of tasks (a peer's messages, say) may leave waiting
// between two threads, so that a peer that floods cannot grow the process
// without bound. A producer asks tryEnter() before it posts a task, and the
// task calls leave() once it has run (also when it finds its target gone).
//
// At the limit, tryEnter() is false and the task is to be dropped. The first
// drop of a burst logs a warning naming the stream and the limit; when the
// backlog has drained to half the limit, one line says how many were dropped.
// Thread-safe.
class PendingLimit {
public:
    // The kit's limits. A message is at most a data channel's largest message.
    static constexpr std::size_t kChannelMessages = 4096;     // per data channel, engine to kit
    static constexpr std::size_t kChannelBytes = 16u << 20;   // per data channel, engine to kit
    static constexpr std::size_t kHandlerMessages = 4096;     // per connection, kit to the handlers' queue
    static constexpr std::size_t kMainDeliveries = 1024;      // per object, server messages to the main thread

    PendingLimit(std::string what, std::size_t maxTasks, std::size_t maxBytes = SIZE_MAX);
    static std::shared_ptr<PendingLimit> make(std::string what, std::size_t maxTasks, std::size_t maxBytes = SIZE_MAX);

    bool tryEnter(std::size_t bytes = 0);
    void leave(std::size_t bytes = 0);

    // Leaves the limit at the end of its scope, also when the task throws.
    class Leave {
    public:
        explicit Leave(PendingLimit& limit, std::size_t bytes = 0)
            : m_limit(limit)
            , m_bytes(bytes)
        {
        }
        ~Leave() { m_limit.leave(m_bytes); }
        Leave(const Leave&) = delete;
        Leave& operator=(const Leave&) = delete;

    private:
        PendingLimit& m_limit;
        const std::size_t m_bytes;
    };

    std::size_t pending() const { return m_tasks.load(); }
    std::uint64_t dropped() const { return m_dropped.load(); }

private:
    const std::string m_what;
    const std::size_t m_maxTasks;
    const std::size_t m_maxBytes;
    std::atomic<std::size_t> m_tasks{0};
    std::atomic<std::size_t> m_bytes{0};
    std::atomic<std::uint64_t> m_dropped{0};
    std::atomic<std::uint64_t> m_droppedInBurst{0};
};

} // namespace vrq
