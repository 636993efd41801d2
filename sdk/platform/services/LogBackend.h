#pragma once

#include <cstdarg>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace vrq::logging {

// Severities as plain integers: 0 verbose, 1 info, 2 warning, 3 error, 4 none.
enum : int { kVerbose = 0, kInfo = 1, kWarning = 2, kError = 3, kNone = 4 };

// Writes a line at a severity to every started logger, if the severity is at
// least the global minimum and the logger's own severity. A minimum of kNone
// silences everything. Callable from any thread, also from a log handler.
void logEx(int severity, std::string_view line);
// Clamped to kVerbose..kNone. The default is kInfo.
void setMinDebugLogLevel(int severity);
int minDebugLogLevel();
// Pushes buffered file output to disk.
void flushAll();
// The last component of a source path.
std::string_view fileName(std::string_view path);
// The kit's log line: "(file:line method): " and the printf-style message.
// `function` may be a bare name or a full signature; the latter is cut to
// its qualified name.
std::string formatLine(const char* file, int line, const char* function, const char* format, va_list arguments);

// Rotating files in a directory, created on start. Lines go to
// currentFile(); when it would grow past maxFileSize it becomes
// "<name>.1.log", older files shift up and the oldest of a few is dropped.
// A directory that cannot be created, or a disk that is full, makes the file
// logger silent; other loggers go on. Thread-safe.
class FileLogger {
public:
    FileLogger(std::filesystem::path directory, std::size_t maxFileSize);
    ~FileLogger();
    void setSeverity(int severity);
    bool start(); // false when the files could not be opened
    void stop();
    std::filesystem::path currentFile() const;

    struct Impl;

private:
    std::shared_ptr<Impl> m_impl;
};

// Hands each line to a handler, on the thread that logged it, with its
// severity (anything outside 0..4 as 0). No lock is held during the call, so
// the handler may log and may start or stop loggers. A line that a handler
// logs is not handed back to that same handler.
//
// start() and stop() replace the handler, then wait until calls of the
// previous handler on other threads have returned: once they return, the
// previous handler is never called again. A handler must therefore not wait
// for a thread that is starting or stopping its logger. Thread-safe.
class CallbackLogger {
public:
    using Handler = std::function<void(int severity, const std::string& line)>;
    CallbackLogger();
    ~CallbackLogger();
    void setSeverity(int severity);
    void start(Handler handler);
    void stop();

    struct Impl;

private:
    std::shared_ptr<Impl> m_impl;
};

} // namespace vrq::logging
