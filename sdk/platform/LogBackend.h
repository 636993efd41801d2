#pragma once

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
// least the global minimum. Callable from any thread.
void logEx(int severity, std::string_view line);
void setMinDebugLogLevel(int severity);
int minDebugLogLevel();
void flushAll();
// The last component of a source path.
std::string_view fileName(std::string_view path);

// Rotating files in a directory. A directory that cannot be created, or a
// disk that is full, makes the file logger silent; other loggers go on.
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

// Hands each line to a handler, on the thread that logged it.
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
