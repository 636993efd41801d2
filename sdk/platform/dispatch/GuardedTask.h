#pragma once

#include <functional>

namespace vrq {

// Runs a task of a queue, a timer or the main loop. A task that throws (a
// host's callback or handler, say) is logged as an error and dropped: the
// queue, the timer and the session go on, and the process is not ended by an
// exception escaping a thread.
void runGuarded(const char* where, const std::function<void()>& task) noexcept;

} // namespace vrq
