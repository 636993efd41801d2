// The disk that holds the kit's log files fills up while a session plays,
// just as the current file is due to rotate. Playing goes on; once there is
// room again, lines reach the file again and the files rotate as before.
#include "integration/faults/FaultTest.h"

#include "vrq/log/VRQLog.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/platform/services/LogBackend.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

using namespace std::chrono_literals;

namespace {

// A tmpfs of a given size mounted on a folder, for the test's time.
class SmallDisk {
public:
    SmallDisk(const std::filesystem::path& where, std::size_t bytes)
        : m_path(where)
    {
        std::filesystem::create_directories(where);
        const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
        if (::mount("vrqtest-logs", where.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0)
            m_mounted = true;
        else
            m_error = std::strerror(errno);
    }
    ~SmallDisk()
    {
        if (m_mounted)
            ::umount2(m_path.c_str(), MNT_DETACH);
    }
    bool mounted() const { return m_mounted; }
    const std::string& error() const { return m_error; }

private:
    std::filesystem::path m_path;
    bool m_mounted = false;
    std::string m_error;
};

// Writes until the disk refuses; the bytes written.
std::size_t fillUp(const std::filesystem::path& file)
{
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (!out)
        return 0;
    const std::string chunk(64 * 1024, 'x');
    std::size_t written = 0;
    for (;;) {
        const std::size_t n = std::fwrite(chunk.data(), 1, chunk.size(), out);
        written += n;
        if (n < chunk.size() || std::fflush(out) != 0)
            break;
    }
    std::fclose(out);
    return written;
}

bool fileHolds(const std::filesystem::path& file, const std::string& text)
{
    std::ifstream in(file, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str().find(text) != std::string::npos;
}

std::uintmax_t sizeOf(const std::filesystem::path& file)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

// A warning of about 200 bytes, as the kit writes them to its files.
void logWarnings(std::size_t count, const std::string& tag)
{
    const std::string padding(160, '.');
    for (std::size_t i = 0; i < count; ++i)
        vrqLogEx(2, tag + " " + std::to_string(i) + " " + padding);
}

class LogDiskFullTest : public vrqtest::FaultTest {};

TEST_F(LogDiskFullTest, PlayingGoesOnAndTheLogFilesRecoverWhenThereIsRoomAgain)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "mounting a small disk needs root";
    {
        vrqtest::TempDir folder;
        SmallDisk disk(folder.path() / "disk", 32u << 20);
        if (!disk.mounted())
            GTEST_SKIP() << "cannot mount a tmpfs here: " << disk.error();
        auto& manager = VRQLogManager::sharedManager();
        const auto logFolder = folder.path() / "disk" / "vrq_logs";
        const auto current = logFolder / "vrq_sdk.log";
        const auto rotated = logFolder / "vrq_sdk.1.log";
        manager.finitSDK();
        manager.initSDK(logFolder.string(), VRQLogManager::kLogFileSize, 2);

        // The current file is nearly due to rotate when the disk fills up:
        // within 64 KiB of its size, in steps of 20 KiB.
        for (int step = 0; step < 1000 && sizeOf(current) < VRQLogManager::kLogFileSize - 64 * 1024; ++step) {
            logWarnings(100, "before");
            vrq::logging::flushAll();
        }
        ASSERT_GE(sizeOf(current), VRQLogManager::kLogFileSize - 64 * 1024);
        ASSERT_FALSE(std::filesystem::exists(rotated));
        ASSERT_GT(fillUp(folder.path() / "disk" / "filler"), 0u);
        const auto sizeWhenFull = sizeOf(current);

        {
            vrqtest::PlayerSession session(vrqtest::loopbackAddress());
            ASSERT_TRUE(session.ready());
            ASSERT_TRUE(playThisSession(session));
            VRQGamePlayer::setLogger(nullptr, 2); // the lines below are for the files alone
            // Enough lines to pass the rotation size, while nothing can be written.
            logWarnings(1000, "while full");
            vrq::logging::flushAll();
            session.settle(3s);
            EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
            EXPECT_GT(VRQSDKMonitor::sharedInstance().currentSDKReport().fps(), 0.0f) << "no video while the disk is full";
            EXPECT_FALSE(fileHolds(current, "while full 999 ")) << "a line was written to a full disk";
            std::fprintf(stderr, "[ measured  ] log file: %ju bytes when the disk filled, %ju after the full-disk lines\n",
                         sizeWhenFull, sizeOf(current));

            // Room again: a line logged now reaches the current file.
            std::filesystem::remove(folder.path() / "disk" / "filler");
            vrqLogEx(3, "room again");
            vrq::logging::flushAll();
            EXPECT_TRUE(fileHolds(current, "room again")) << "nothing reaches the file once there is room again";

            // ... and the files rotate as before.
            std::size_t batches = 0;
            while (!fileHolds(rotated, "after ") && batches < 80) {
                logWarnings(1000, "after");
                vrq::logging::flushAll();
                ++batches;
            }
            vrqLogEx(3, "last line");
            vrq::logging::flushAll();
            std::fprintf(stderr, "[ measured  ] after %zu000 more lines: %ju bytes current, %ju bytes rotated\n", batches,
                         sizeOf(current), sizeOf(rotated));
            EXPECT_TRUE(fileHolds(rotated, "room again")) << "the file written after the disk was full did not rotate";
            EXPECT_TRUE(fileHolds(current, "last line"));
            EXPECT_LE(sizeOf(rotated), VRQLogManager::kLogFileSize);
            EXPECT_LT(sizeOf(current), VRQLogManager::kLogFileSize);
            EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
        }
        manager.finitSDK(); // the files are closed before their disk goes
    }
    expectNothingLeftBehind();
    expectANewSessionPlays();
}

} // namespace
