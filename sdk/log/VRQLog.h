#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

struct VRQRemoteSession;

// The kit's four log entry points. Callable from any thread.
void vrqLogEx(int level, const std::string& line);
std::string_view vrqLogFileName(std::string_view path);
void vrqLogReset(const VRQRemoteSession& session);
void vrqUploadLog(const std::string& line);
void vrqFlushLog();

// Builds "(file:line method): " followed by the printf-style message.
std::string vrqLogLine(const char* file, int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// The one place that builds the line prefix of the kit's log lines.
#define VRQ_LOG_LINE(format, ...) vrqLogLine(__FILE__, __LINE__, __PRETTY_FUNCTION__, format __VA_OPT__(, ) __VA_ARGS__)

// Logs a line at a level (0 verbose, 1 info, 2 warning, 3 error).
#define VRQ_LOG(level, format, ...) vrqLogEx(level, VRQ_LOG_LINE(format __VA_OPT__(, ) __VA_ARGS__))

// Logs a line and also queues it for upload to the metrics service.
#define VRQ_LOG_UPLOAD(level, format, ...)                                  \
    do {                                                                    \
        const std::string vrqLine_ = VRQ_LOG_LINE(format __VA_OPT__(, ) __VA_ARGS__); \
        vrqLogEx(level, vrqLine_);                                          \
        vrqUploadLog(vrqLine_);                                             \
    } while (0)
