#pragma once

#include <atomic>
#include <memory>

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

    VRQLogDelegate* logDelegate() const { return m_logDelegate.load(); }
    // Non-owning; may be replaced from any thread while lines are logged.
    void setLogDelegate(VRQLogDelegate* delegate) { m_logDelegate.store(delegate); }

    void start(int level);
    void stop();

private:
    std::atomic<VRQLogDelegate*> m_logDelegate{nullptr};
    std::unique_ptr<vrq::logging::CallbackLogger> m_rtcLogger;
};
