#pragma once

#include <memory>
#include <mutex>

class VRQLogDelegate;

namespace vrq::logging {
class CallbackLogger;
}

// Bridges the callback logger to the host's log delegate.
class VRQLogger {
public:
    VRQLogger();
    ~VRQLogger();
    VRQLogger(const VRQLogger&) = delete;
    VRQLogger& operator=(const VRQLogger&) = delete;

    VRQLogDelegate* logDelegate() const;
    // Non-owning; may be replaced from any thread while lines are logged. Once
    // it returns, the delegate it replaced is no longer being called (unless
    // it is called from inside that delegate), so the host may destroy it.
    void setLogDelegate(VRQLogDelegate* delegate);

    void start(int level);
    void stop();

private:
    // Held while the delegate runs; recursive, so that the delegate may replace itself.
    mutable std::recursive_mutex m_delegateMutex;
    VRQLogDelegate* m_logDelegate = nullptr; // guarded by m_delegateMutex
    std::unique_ptr<vrq::logging::CallbackLogger> m_rtcLogger;
};
