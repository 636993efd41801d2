#include "vrq/log/VRQLog.h"

#include "vrq/log/VRQLogManager.h"
#include "vrq/platform/services/LogBackend.h"

#include <cstdarg>

void vrqLogEx(int level, const std::string& line)
{
    vrq::logging::logEx(level, line);
}

std::string_view vrqLogFileName(std::string_view path)
{
    return vrq::logging::fileName(path);
}

void vrqLogReset(const VRQRemoteSession& session)
{
    VRQLogManager::sharedManager().updateSessionInfo(session);
}

void vrqUploadLog(const std::string& line)
{
    VRQLogManager::sharedManager().uploadLog(line);
}

void vrqFlushLog()
{
    VRQLogManager::sharedManager().postMetricLog();
}

std::string vrqLogLine(const char* file, int line, const char* function, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = vrq::logging::formatLine(file, line, function, format, arguments);
    va_end(arguments);
    return text;
}
