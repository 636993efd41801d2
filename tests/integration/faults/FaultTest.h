#pragma once

// What every fault test checks around its fault: the process holds no more
// threads and file descriptors once the faulty session is stopped and torn
// down than it held before it, and the host can then play a new session.
//
// The first session of a process starts what is process-wide and started
// once (the global pool, the timer thread, the HTTP worker, GStreamer's
// registry and pools): a warm-up session plays and ends before the baseline
// is taken.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"
#include "support/Sanitizers.h"

#include "vrq/platform/dispatch/MainLoop.h"

#include <glib.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace vrqtest {

// Threads, open file descriptors and resident memory of this process.
struct ProcessFootprint {
    std::size_t threads = 0;
    std::size_t fds = 0;
    std::size_t rssKb = 0;

    static ProcessFootprint now()
    {
        ProcessFootprint footprint;
        std::error_code error;
        for (auto it = std::filesystem::directory_iterator("/proc/self/task", error);
             !error && it != std::filesystem::directory_iterator(); it.increment(error))
            ++footprint.threads;
        for (auto it = std::filesystem::directory_iterator("/proc/self/fd", error);
             !error && it != std::filesystem::directory_iterator(); it.increment(error))
            ++footprint.fds;
        std::size_t pages = 0;
        std::size_t resident = 0;
        std::ifstream("/proc/self/statm") >> pages >> resident;
        footprint.rssKb = resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
        return footprint;
    }
};

inline std::ostream& operator<<(std::ostream& out, const ProcessFootprint& footprint)
{
    return out << footprint.threads << " threads, " << footprint.fds << " fds, " << footprint.rssKb / 1024 << " MiB resident";
}

class FaultTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        {
            PlayerSession warmUp(loopbackAddress());
            ASSERT_TRUE(warmUp.ready());
            ASSERT_TRUE(warmUp.play()) << "the warm-up session did not play";
        }
        m_baseline = settledFootprint();
        m_baselineFiles = openFiles();
        std::fprintf(stderr, "[ footprint ] before the fault: %s\n", describe(m_baseline).c_str());
    }

    // GLib keeps idle threads for reuse (GStreamer's streaming tasks run on
    // them) and ends them after 15 s: they are asked to end now, and the count
    // is taken once it held still for half a second (or after 5 s).
    static ProcessFootprint settledFootprint()
    {
        g_thread_pool_stop_unused_threads();
        ProcessFootprint last = ProcessFootprint::now();
        auto stillSince = std::chrono::steady_clock::now();
        vrq::runMainLoopUntil(
            [&] {
                const auto now = ProcessFootprint::now();
                if (now.threads != last.threads || now.fds != last.fds) {
                    last = now;
                    stillSince = std::chrono::steady_clock::now();
                    g_thread_pool_stop_unused_threads();
                }
                return std::chrono::steady_clock::now() - stillSince >= std::chrono::milliseconds(500);
            },
            std::chrono::seconds(5));
        return last;
    }

    // After the faulty session was stopped and torn down.
    void expectNothingLeftBehind()
    {
        ProcessFootprint after;
        const bool settled = vrq::runMainLoopUntil(
            [&] {
                after = settledFootprint();
                return after.threads <= m_baseline.threads && after.fds <= m_baseline.fds;
            },
            std::chrono::seconds(20));
        std::fprintf(stderr, "[ footprint ] after the fault, torn down: %s\n", describe(after).c_str());
        EXPECT_TRUE(settled) << "before: " << m_baseline << "; after: " << after << "\nopen before:\n"
                             << m_baselineFiles << "open after:\n" << openFiles();
    }

    // A new session, from a new player against a new back end, shows video
    // and answers input.
    void expectANewSessionPlays()
    {
        PlayerSession next(loopbackAddress());
        ASSERT_TRUE(next.ready());
        ASSERT_TRUE(playThisSession(next)) << "a session after the fault did not play";
        EXPECT_EQ(next.player->gameStatus(), VRQGameStatusPlaying);
        EXPECT_FALSE(next.delegate->has("failure:10002"));
    }

    // Up to video and a heartbeat reply from this very session: the token
    // that a reconnect signs with is the last one heard, and the session before
    // this one left its own.
    static bool playThisSession(PlayerSession& session)
    {
        return session.play() && session.waitFor([&] {
            const auto served = session.serverSession();
            return served && VRQSDKMonitor::sharedInstance().currentSDKReport().token() == served->token();
        });
    }

    static std::string describe(const ProcessFootprint& footprint)
    {
        std::ostringstream text;
        text << footprint;
        return text.str();
    }

    // What the open descriptors point at, to tell which one was left behind.
    static std::string openFiles()
    {
        std::string list;
        std::error_code error;
        for (auto it = std::filesystem::directory_iterator("/proc/self/fd", error);
             !error && it != std::filesystem::directory_iterator(); it.increment(error))
            list += it->path().filename().string() + " -> " + std::filesystem::read_symlink(it->path(), error).string() + "\n";
        return list;
    }

    ProcessFootprint m_baseline;
    std::string m_baselineFiles;
};

} // namespace vrqtest
