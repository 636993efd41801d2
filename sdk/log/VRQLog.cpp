#include "log/VRQLog.h"

#include "log/VRQLogManager.h"
#include "platform/LogBackend.h"

#include <cstdarg>
#include <cstdio>

namespace {

// "void Foo::bar(int) const" -> "Foo::bar": the qualified name without return type and parameters.
std::string_view methodName(std::string_view pretty)
{
    const auto open = pretty.find('(');
    if (open == std::string_view::npos)
        return pretty;
    const auto name = pretty.substr(0, open);
    const auto space = name.rfind(' ');
    return space == std::string_view::npos ? name : name.substr(space + 1);
}

} // namespace

void vrqLogEx(int level, const std::string& line)
{
    vrq::logging::logEx(level, line);
}

std::string_view vrqLogFileName(std::string_view path)
{
    return vrq::logging::fileName(path);
}

void vrqLogReset(const nlohmann::json& sessionInfo)
{
    VRQLogManager::sharedManager().updateSessionInfo(sessionInfo);
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
    std::string text = "(";
    text += vrqLogFileName(file);
    text += ':';
    text += std::to_string(line);
    text += ' ';
    text += methodName(function);
    text += "): ";

    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (size > 0) {
        const std::size_t prefix = text.size();
        text.resize(prefix + static_cast<std::size_t>(size) + 1);
        std::vsnprintf(text.data() + prefix, static_cast<std::size_t>(size) + 1, format, args);
        text.resize(prefix + static_cast<std::size_t>(size));
    }
    va_end(args);
    return text;
}
