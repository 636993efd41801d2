#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>

namespace vrq {

// Thrown when an operation that must run on the main thread is called elsewhere.
class VRQAssertionError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// The main thread is the one that iterates GLib's default main context (for
// example inside g_main_loop_run or runMainLoopUntil), or the process's initial
// thread while no other thread owns that context.
bool isMainThread();

// Throws VRQAssertionError("need run on main thread.") off the main thread.
void assertMainThread();

// Runs fn on the main thread at the next iteration of the default main context.
void dispatchMainAsync(std::function<void()> fn);

// Runs fn on the shared default-priority pool (the global concurrent queue).
void dispatchGlobalAsync(std::function<void()> fn);

// Ends the main thread's current wait at once, from any thread, so that a
// loop such as runMainLoopUntil re-checks its predicate (a renderer's "a new
// frame is there", say) without posting a task.
void wakeMainLoop();

// Iterates the default main context on the calling thread until predicate()
// is true or the timeout passes. Returns the predicate's last value.
bool runMainLoopUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);

// Wall-clock milliseconds since 1970: the one source of times on the wire.
// Under a test's manual timer clock it moves with that clock.
std::int64_t nowMs();

} // namespace vrq
