#pragma once

#include <string>

// Implemented by the host to receive the kit's log lines. Called on whatever
// thread logged the line, so implementations must be thread-safe. The kit
// does not own the delegate: it must outlive its registration.
class VRQLogDelegate {
public:
    virtual ~VRQLogDelegate() = default;
    // level: 0 verbose, 1 info, 2 warning, 3 error, 4 none.
    virtual void logWithLevel(int level, const std::string& log) = 0;
};
