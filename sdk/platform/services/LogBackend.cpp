#include "vrq/platform/services/LogBackend.h"

#include <cstdio>

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace vrq::logging {
namespace {

constexpr const char* kLogFileName = "vrq_sdk.log";
constexpr std::size_t kKeptRotatedFiles = 5;

std::atomic<int> g_minLevel{kInfo};

// A started logger, as logEx sees it.
class Target {
public:
    virtual ~Target() = default;
    virtual void write(int severity, std::string_view line) = 0;
    virtual void flush() {}
};

using TargetList = std::vector<std::shared_ptr<Target>>;

// The started loggers, copy-on-write: logEx takes a snapshot under the mutex
// and writes outside it, so that loggers can start and stop meanwhile.
class Registry {
public:
    // Never destroyed: lines may still be logged while the process exits.
    static Registry& shared()
    {
        static auto* const registry = new Registry;
        return *registry;
    }

    std::shared_ptr<const TargetList> snapshot() const
    {
        std::lock_guard lock(m_mutex);
        return m_targets;
    }

    void add(const std::shared_ptr<Target>& target)
    {
        std::lock_guard lock(m_mutex);
        if (std::find(m_targets->begin(), m_targets->end(), target) != m_targets->end())
            return;
        auto targets = std::make_shared<TargetList>(*m_targets);
        targets->push_back(target);
        m_targets = std::move(targets);
    }

    void remove(const Target* target)
    {
        std::lock_guard lock(m_mutex);
        auto targets = std::make_shared<TargetList>(*m_targets);
        std::erase_if(*targets, [target](const auto& entry) { return entry.get() == target; });
        m_targets = std::move(targets);
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const TargetList> m_targets = std::make_shared<const TargetList>();
};

spdlog::level::level_enum fileLevel(int severity)
{
    switch (severity) {
    case kVerbose:
        return spdlog::level::trace;
    case kInfo:
        return spdlog::level::info;
    case kWarning:
        return spdlog::level::warn;
    case kError:
        return spdlog::level::err;
    default:
        return spdlog::level::critical;
    }
}

int handlerSeverity(int severity)
{
    return severity >= kVerbose && severity <= kNone ? severity : kVerbose;
}

} // namespace

void logEx(int severity, std::string_view line)
{
    const int minimum = g_minLevel.load(std::memory_order_relaxed);
    if (minimum >= kNone || severity < minimum)
        return;
    const auto targets = Registry::shared().snapshot();
    for (const auto& target : *targets)
        target->write(severity, line);
}

void setMinDebugLogLevel(int severity)
{
    g_minLevel.store(std::clamp(severity, static_cast<int>(kVerbose), static_cast<int>(kNone)));
}

int minDebugLogLevel()
{
    return g_minLevel.load();
}

void flushAll()
{
    const auto targets = Registry::shared().snapshot();
    for (const auto& target : *targets)
        target->flush();
}

std::string_view fileName(std::string_view path)
{
    const auto separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

// ---- FileLogger

struct FileLogger::Impl : Target {
    Impl(std::filesystem::path directory, std::size_t maxFileSize)
        : m_directory(std::move(directory))
        , m_maxFileSize(maxFileSize)
    {
    }

    std::shared_ptr<spdlog::logger> open() const;

    void write(int severity, std::string_view line) override
    {
        if (severity < m_severity.load(std::memory_order_relaxed))
            return;
        if (line.ends_with('\n'))
            line.remove_suffix(1);
        if (auto logger = current())
            logger->log(fileLevel(severity), spdlog::string_view_t(line.data(), line.size()));
    }

    void flush() override
    {
        if (auto logger = current())
            logger->flush();
    }

    std::shared_ptr<spdlog::logger> current() const
    {
        std::lock_guard lock(m_mutex);
        return m_logger;
    }

    const std::filesystem::path m_directory;
    const std::size_t m_maxFileSize;
    std::atomic<int> m_severity{kInfo};
    mutable std::mutex m_mutex;
    std::shared_ptr<spdlog::logger> m_logger; // guarded by m_mutex; null while stopped
};

std::shared_ptr<spdlog::logger> FileLogger::Impl::open() const
{
    std::error_code error;
    std::filesystem::create_directories(m_directory, error);
    if (error)
        return nullptr;
    try {
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            (m_directory / kLogFileName).string(), m_maxFileSize, kKeptRotatedFiles);
        auto logger = std::make_shared<spdlog::logger>("vrq.file", std::move(sink));
        // A full disk or a failed rotation must not print to stderr on every line.
        logger->set_error_handler([](const std::string&) {});
        logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e] %v");
        logger->set_level(spdlog::level::trace);
        logger->flush_on(spdlog::level::err);
        return logger;
    } catch (...) {
        return nullptr;
    }
}

FileLogger::FileLogger(std::filesystem::path directory, std::size_t maxFileSize)
    : m_impl(std::make_shared<Impl>(std::move(directory), maxFileSize))
{
}

FileLogger::~FileLogger()
{
    stop();
}

void FileLogger::setSeverity(int severity)
{
    m_impl->m_severity.store(severity);
}

bool FileLogger::start()
{
    std::lock_guard lock(m_impl->m_mutex);
    if (m_impl->m_logger)
        return true;
    m_impl->m_logger = m_impl->open();
    if (!m_impl->m_logger)
        return false;
    Registry::shared().add(m_impl);
    return true;
}

void FileLogger::stop()
{
    Registry::shared().remove(m_impl.get());
    std::shared_ptr<spdlog::logger> logger;
    {
        std::lock_guard lock(m_impl->m_mutex);
        logger = std::move(m_impl->m_logger);
    }
    if (logger)
        logger->flush();
}

std::filesystem::path FileLogger::currentFile() const
{
    return m_impl->m_directory / kLogFileName;
}

// ---- CallbackLogger

namespace {

// One installed handler and the number of its calls in progress.
struct HandlerSlot {
    explicit HandlerSlot(CallbackLogger::Handler fn)
        : handler(std::move(fn))
    {
    }
    const CallbackLogger::Handler handler;
    int calls = 0; // guarded by the owning logger's mutex
};

// The handler calls in progress on this thread, innermost last.
struct ActiveCall {
    const void* logger;
    const HandlerSlot* slot;
};
thread_local std::vector<ActiveCall> t_activeCalls;

class ActiveCallScope {
public:
    ActiveCallScope(const void* logger, const HandlerSlot* slot) { t_activeCalls.push_back({logger, slot}); }
    ~ActiveCallScope() { t_activeCalls.pop_back(); }
    ActiveCallScope(const ActiveCallScope&) = delete;
    ActiveCallScope& operator=(const ActiveCallScope&) = delete;
};

bool insideLogger(const void* logger)
{
    return std::any_of(t_activeCalls.begin(), t_activeCalls.end(),
                       [logger](const ActiveCall& call) { return call.logger == logger; });
}

int callsOnThisThread(const HandlerSlot* slot)
{
    return static_cast<int>(std::count_if(t_activeCalls.begin(), t_activeCalls.end(),
                                          [slot](const ActiveCall& call) { return call.slot == slot; }));
}

} // namespace

struct CallbackLogger::Impl : Target {
    void write(int severity, std::string_view line) override
    {
        if (severity < m_severity.load(std::memory_order_relaxed))
            return;
        // The handler's own lines would come straight back to it.
        if (insideLogger(this))
            return;
        std::shared_ptr<HandlerSlot> slot;
        {
            std::lock_guard lock(m_mutex);
            if (!m_slot)
                return;
            slot = m_slot;
            ++slot->calls;
        }
        call(*slot, severity, line);
        {
            std::lock_guard lock(m_mutex);
            --slot->calls;
        }
        m_idle.notify_all();
    }

    void call(const HandlerSlot& slot, int severity, std::string_view line)
    {
        ActiveCallScope scope(this, &slot);
        try {
            slot.handler(handlerSeverity(severity), std::string(line));
        } catch (...) {
            // A throwing handler loses its line; there is nowhere left to report it.
        }
    }

    // Installs a new handler (or none) and waits out calls of the old one on
    // other threads. Its calls on this thread, when replaced from inside the
    // handler, cannot be waited for; the slot lives on until they return.
    void replace(std::shared_ptr<HandlerSlot> slot)
    {
        std::unique_lock lock(m_mutex);
        std::shared_ptr<HandlerSlot> previous = std::exchange(m_slot, std::move(slot));
        if (previous) {
            const int own = callsOnThisThread(previous.get());
            m_idle.wait(lock, [&] { return previous->calls <= own; });
        }
    }

    std::atomic<int> m_severity{kInfo};
    std::mutex m_mutex;
    std::condition_variable m_idle;
    std::shared_ptr<HandlerSlot> m_slot; // guarded by m_mutex; null while stopped
};

CallbackLogger::CallbackLogger()
    : m_impl(std::make_shared<Impl>())
{
}

CallbackLogger::~CallbackLogger()
{
    stop();
}

void CallbackLogger::setSeverity(int severity)
{
    m_impl->m_severity.store(severity);
}

void CallbackLogger::start(Handler handler)
{
    if (!handler) {
        stop();
        return;
    }
    m_impl->replace(std::make_shared<HandlerSlot>(std::move(handler)));
    Registry::shared().add(m_impl);
}

void CallbackLogger::stop()
{
    Registry::shared().remove(m_impl.get());
    m_impl->replace(nullptr);
}

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

std::string formatLine(const char* file, int line, const char* function, const char* format, va_list arguments)
{
    std::string text = "(";
    text += fileName(file);
    text += ':';
    text += std::to_string(line);
    text += ' ';
    text += methodName(function);
    text += "): ";
    va_list copy;
    va_copy(copy, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (size > 0) {
        const std::size_t prefix = text.size();
        text.resize(prefix + static_cast<std::size_t>(size) + 1);
        std::vsnprintf(text.data() + prefix, static_cast<std::size_t>(size) + 1, format, arguments);
        text.resize(prefix + static_cast<std::size_t>(size));
    }
    return text;
}

} // namespace vrq::logging
