#include "vrq/log/VRQLogger.h"

#include "vrq/log/VRQLogDelegate.h"
#include "vrq/platform/services/LogBackend.h"

VRQLogger::VRQLogger() = default;

VRQLogger::~VRQLogger()
{
    stop();
}

VRQLogDelegate* VRQLogger::logDelegate() const
{
    std::lock_guard lock(m_delegateMutex);
    return m_logDelegate;
}

void VRQLogger::setLogDelegate(VRQLogDelegate* delegate)
{
    std::lock_guard lock(m_delegateMutex);
    m_logDelegate = delegate;
}

void VRQLogger::start(int level)
{
    m_rtcLogger = std::make_unique<vrq::logging::CallbackLogger>();
    m_rtcLogger->setSeverity(level);
    m_rtcLogger->start([this](int severity, const std::string& line) {
        std::lock_guard lock(m_delegateMutex);
        if (!m_logDelegate)
            return;
        try {
            m_logDelegate->logWithLevel(severity >= 0 && severity <= 4 ? severity : 0, line);
        } catch (...) {
            // A host delegate that throws must not take the logging thread down.
        }
    });
}

void VRQLogger::stop()
{
    if (m_rtcLogger)
        m_rtcLogger->stop();
}
