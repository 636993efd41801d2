#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vrqserver {

// One data-channel message as it arrived.
struct ChannelMessage {
    std::string label;
    bool isBinary = false;
    std::string bytes;
    std::int64_t arrivalMs = 0; // wall clock, ms since 1970
};

// Every message that arrived on a session's channels, in arrival order, for
// tests and tools to read. Thread-safe.
class ChannelMessageLog {
public:
    using Predicate = std::function<bool(const std::vector<ChannelMessage>&)>;

    void append(ChannelMessage message);
    std::vector<ChannelMessage> messages() const;
    std::vector<ChannelMessage> messagesOn(const std::string& label) const;
    // Blocks until the predicate holds for the messages so far, or the timeout
    // passes; returns the predicate's last value. The predicate runs under the log's lock.
    bool waitUntil(const Predicate& predicate, std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<ChannelMessage> m_messages; // guarded by m_mutex
};

} // namespace vrqserver
