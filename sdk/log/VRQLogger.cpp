#include "log/VRQLogger.h"

#include "log/VRQLogDelegate.h"
#include "platform/LogBackend.h"

VRQLogger::VRQLogger() = default;

VRQLogger::~VRQLogger()
{
    stop();
}

void VRQLogger::start(int level)
{
    m_rtcLogger = std::make_unique<vrq::logging::CallbackLogger>();
    m_rtcLogger->setSeverity(level);
    m_rtcLogger->start([this](int severity, const std::string& line) {
        VRQLogDelegate* delegate = m_logDelegate.load();
        if (!delegate)
            return;
        try {
            delegate->logWithLevel(severity >= 0 && severity <= 4 ? severity : 0, line);
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
