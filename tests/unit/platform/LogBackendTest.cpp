#include "support/TempHome.h"
#include "vrq/platform/services/LogBackend.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
namespace logging = vrq::logging;

namespace {

struct Line {
    int severity;
    std::string text;
    bool operator==(const Line&) const = default;
};

// Collects what a callback logger receives, from any thread.
class Collector {
public:
    logging::CallbackLogger::Handler handler()
    {
        return [this](int severity, const std::string& line) {
            std::lock_guard lock(m_mutex);
            m_lines.push_back({severity, line});
        };
    }
    std::vector<Line> lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};

std::string readFile(const fs::path& path)
{
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

class LogBackendTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_previousLevel = logging::minDebugLogLevel();
        logging::setMinDebugLogLevel(logging::kVerbose);
    }
    void TearDown() override { logging::setMinDebugLogLevel(m_previousLevel); }

    vrqtest::TempDir m_dir;
    int m_previousLevel = logging::kInfo;
};

} // namespace

TEST_F(LogBackendTest, LinesReachTheCallbackOnlyAtOrAboveBothLevels)
{
    Collector collector;
    logging::CallbackLogger logger;
    logger.setSeverity(logging::kInfo);
    logger.start(collector.handler());

    logging::setMinDebugLogLevel(logging::kWarning);
    for (int severity = logging::kVerbose; severity <= logging::kError; ++severity)
        logging::logEx(severity, "global " + std::to_string(severity));

    logging::setMinDebugLogLevel(logging::kVerbose);
    logger.setSeverity(logging::kError);
    logging::logEx(logging::kWarning, "own 2");
    logging::logEx(logging::kError, "(A.cpp:1 f): own 3\n");
    logging::logEx(7, "out of range");

    logging::setMinDebugLogLevel(logging::kNone);
    logging::logEx(logging::kError, "silenced");
    logging::logEx(logging::kNone, "silenced too");

    const std::vector<Line> expected = {
        {2, "global 2"}, {3, "global 3"}, {3, "(A.cpp:1 f): own 3\n"}, {0, "out of range"}};
    EXPECT_EQ(collector.lines(), expected);
}

TEST_F(LogBackendTest, FileLoggerCreatesItsDirectoryAndRotates)
{
    constexpr std::size_t kMaxSize = 2000;
    const fs::path directory = m_dir.path() / "nested" / "vrq_logs";
    logging::FileLogger logger(directory, kMaxSize);
    logger.setSeverity(logging::kInfo);
    ASSERT_TRUE(logger.start());

    logging::logEx(logging::kVerbose, "below the file's severity");
    for (int i = 0; i < 200; ++i)
        logging::logEx(logging::kWarning, "(F.cpp:7 g): line " + std::to_string(i) + std::string(60, '.'));
    logging::flushAll();

    const std::string current = readFile(logger.currentFile());
    EXPECT_EQ(logger.currentFile().parent_path(), directory);
    EXPECT_NE(current.find("(F.cpp:7 g): line 199."), std::string::npos);
    EXPECT_LE(current.size(), kMaxSize);

    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory))
        files.push_back(entry.path());
    EXPECT_GE(files.size(), 2u) << "no rotation happened";
    EXPECT_LE(files.size(), 8u) << "old files are not dropped";
    for (const auto& file : files) {
        EXPECT_LE(fs::file_size(file), kMaxSize) << file;
        EXPECT_EQ(readFile(file).find("below the file's severity"), std::string::npos);
    }
    // The first lines were rotated out long ago.
    for (const auto& file : files)
        EXPECT_EQ(readFile(file).find("line 0."), std::string::npos) << file;
}

TEST_F(LogBackendTest, UncreatableDirectoryLeavesCallbackLoggingWorking)
{
    const fs::path blocker = m_dir.path() / "plain-file";
    std::ofstream(blocker) << "not a directory";
    logging::FileLogger fileLogger(blocker / "vrq_logs", 10485760);
    Collector collector;
    logging::CallbackLogger callbackLogger;
    callbackLogger.start(collector.handler());

    EXPECT_FALSE(fileLogger.start());
    logging::logEx(logging::kError, "still heard");
    logging::flushAll();

    EXPECT_EQ(collector.lines(), (std::vector<Line>{{3, "still heard"}}));
}

TEST_F(LogBackendTest, FullDiskLeavesCallbackLoggingWorking)
{
    if (!fs::exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    const fs::path directory = m_dir.path() / "logs";
    fs::create_directories(directory);
    logging::FileLogger fileLogger(directory, 10485760);
    fs::create_symlink("/dev/full", fileLogger.currentFile());
    Collector collector;
    logging::CallbackLogger callbackLogger;
    callbackLogger.start(collector.handler());

    ASSERT_TRUE(fileLogger.start());
    for (int i = 0; i < 50; ++i)
        logging::logEx(logging::kError, std::string(200, 'e')); // errors are flushed at once
    logging::flushAll();

    EXPECT_EQ(collector.lines().size(), 50u);
}

TEST_F(LogBackendTest, HandlerMayLogAndStopItsOwnLogger)
{
    Collector other;
    logging::CallbackLogger otherLogger;
    otherLogger.start(other.handler());

    logging::CallbackLogger logger;
    int calls = 0;
    logger.start([&](int, const std::string& line) {
        ++calls;
        logging::logEx(logging::kError, "echo of " + line);
        logger.stop();
    });
    logging::logEx(logging::kError, "first");
    logging::logEx(logging::kError, "second");

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(other.lines(), (std::vector<Line>{{3, "first"}, {3, "echo of first"}, {3, "second"}}));
}

TEST_F(LogBackendTest, ThrowingHandlerDoesNotStopOtherLoggers)
{
    logging::CallbackLogger throwing;
    throwing.start([](int, const std::string&) { throw std::runtime_error("host bug"); });
    Collector collector;
    logging::CallbackLogger logger;
    logger.start(collector.handler());

    EXPECT_NO_THROW(logging::logEx(logging::kError, "line"));
    EXPECT_EQ(collector.lines().size(), 1u);
}

TEST_F(LogBackendTest, ConcurrentLoggingWhileLoggersStartAndStop)
{
    constexpr int kThreads = 4;
    constexpr int kLinesPerThread = 2000;
    Collector steady;
    logging::CallbackLogger steadyLogger;
    steadyLogger.start(steady.handler());

    std::atomic<bool> churnStopped{false};
    std::atomic<int> lateCalls{0};
    std::atomic<int> writersDone{0};
    logging::CallbackLogger churning;
    logging::FileLogger fileLogger(m_dir.path() / "logs", 4096);

    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([t, &writersDone] {
            for (int i = 0; i < kLinesPerThread; ++i)
                logging::logEx(logging::kWarning, "thread " + std::to_string(t) + " line " + std::to_string(i));
            ++writersDone;
        });
    // Loggers come and go for as long as the writers write.
    int rounds = 0;
    while (writersDone < kThreads || rounds < 10) {
        ++rounds;
        churnStopped = false;
        churning.start([&](int, const std::string&) {
            if (churnStopped)
                ++lateCalls;
        });
        fileLogger.start();
        churning.stop();
        churnStopped = true;
        fileLogger.stop();
    }
    for (auto& writer : writers)
        writer.join();

    EXPECT_EQ(steady.lines().size(), static_cast<std::size_t>(kThreads * kLinesPerThread));
    EXPECT_EQ(lateCalls, 0) << "a handler was called after stop() returned";
}

TEST(LogFileNameTest, KeepsTheLastPathComponent)
{
    EXPECT_EQ(logging::fileName("/src/sdk/core/VRQGamePlayer.cpp"), "VRQGamePlayer.cpp");
    EXPECT_EQ(logging::fileName("VRQGamePlayer.cpp"), "VRQGamePlayer.cpp");
    EXPECT_EQ(logging::fileName("sdk/log/"), "");
}
