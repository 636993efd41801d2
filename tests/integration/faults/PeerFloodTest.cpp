// The game server floods the player: 10 000 messages a second on "sv" (save
// game status, each one for the host's archive delegate) and "km" (remote
// figures) for 10 s. The player keeps up or says what it dropped, its memory
// stays bounded, and the session still answers afterwards.
#include "integration/faults/FaultTest.h"

#include "vrq/core/VRQGameArchiveDelegate.h"
#include "vrq/log/VRQLogDelegate.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <mutex>

using namespace std::chrono_literals;

namespace {

// Counts the archive statuses the host is told of.
class CountingArchiveDelegate : public VRQGameArchiveDelegate {
public:
    void onLoadStatusChanged(int, const nlohmann::json&) override { ++m_loads; }
    std::size_t loads() const { return m_loads.load(); }

private:
    std::atomic<std::size_t> m_loads = 0;
};

// Counts every line; keeps only those that speak of dropping, so that a flood
// of lines does not fill this process's memory.
class DropLineLog : public VRQLogDelegate {
public:
    void logWithLevel(int, const std::string& line) override
    {
        ++m_lines;
        std::string lower = line;
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        if (lower.find("drop") == std::string::npos)
            return;
        std::lock_guard lock(m_mutex);
        m_dropLines.push_back(line);
    }
    std::size_t lineCount() const { return m_lines.load(); }
    std::vector<std::string> dropLines() const
    {
        std::lock_guard lock(m_mutex);
        return m_dropLines;
    }

private:
    std::atomic<std::size_t> m_lines = 0;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_dropLines;
};

class PeerFloodTest : public vrqtest::FaultTest {};

TEST_F(PeerFloodTest, TenThousandMessagesASecondForTenSecondsLeaveTheSessionAnswering)
{
    {
        DropLineLog log; // outlives the session, which detaches the kit's logger as it ends
        vrqtest::PlayerSession session(vrqtest::loopbackAddress());
        ASSERT_TRUE(session.ready());
        ASSERT_TRUE(playThisSession(session));
        auto archive = std::make_shared<CountingArchiveDelegate>();
        session.player->setArchiveDelegate(archive);
        VRQGamePlayer::setLogger(&log, 1);

        auto& flood = session.server->faults().flood();
        const std::size_t before = vrqtest::ProcessFootprint::now().rssKb;
        ASSERT_TRUE(flood.start({{"sv", "km"}, 10000, 10s}));
        std::size_t peak = before;
        const auto started = std::chrono::steady_clock::now();
        while (flood.progress().running && std::chrono::steady_clock::now() - started < vrqtest::slowed(30s)) {
            session.settle(250ms);
            peak = std::max(peak, vrqtest::ProcessFootprint::now().rssKb);
        }
        const auto floodTook = std::chrono::steady_clock::now() - started;
        const auto progress = flood.progress();
        ASSERT_FALSE(progress.running) << "the flood did not end";
        const std::size_t svSent = progress.sentOn.count("sv") ? progress.sentOn.at("sv") : 0;
        std::fprintf(stderr, "[ measured  ] flood: %zu sent (%zu on sv) in %lld ms, %zu refused by the channel\n", progress.sent,
                     svSent, static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(floodTook).count()),
                     progress.failed);
        EXPECT_GE(progress.sent, 90000u) << "the server could not flood at the rate asked";

        // The player works through what it accepted, or has said what it dropped.
        const bool caughtUp = session.waitFor([&] { return archive->loads() >= svSent; }, 15s);
        const std::size_t after = vrqtest::ProcessFootprint::now().rssKb;
        peak = std::max(peak, after);
        std::fprintf(stderr,
                     "[ measured  ] resident memory: %zu MiB before the flood, peak %zu MiB, %zu MiB after; "
                     "%zu of %zu save statuses reached the host; %zu lines logged\n",
                     before / 1024, peak / 1024, after / 1024, archive->loads(), svSent, log.lineCount());
        for (const auto& line : log.dropLines())
            std::fprintf(stderr, "[ kit log   ] %s\n", line.c_str());
        if (!caughtUp) {
            EXPECT_FALSE(log.dropLines().empty()) << archive->loads() << " of " << svSent
                                                  << " save statuses reached the host, and nothing said they were dropped";
        }
        EXPECT_LE(archive->loads(), svSent);
        if (vrqtest::kResidentMemoryIsMeaningful) {
            EXPECT_LT(peak - before, 64u * 1024) << "resident memory grew by " << (peak - before) / 1024 << " MiB";
        }

        // The session still answers: an acknowledged request makes its round trip.
        EXPECT_EQ(session.player->gameStatus(), VRQGameStatusPlaying);
        // The reply comes on the main thread, a time-out on a pool thread.
        struct Reply {
            std::mutex mutex;
            std::optional<nlohmann::json> data;
        };
        auto reply = std::make_shared<Reply>();
        const auto asked = std::chrono::steady_clock::now();
        session.player->sendAckMessage({{"type", "paste"}, {"text", "after the flood"}},
                                       [reply](std::optional<VRQError> error, nlohmann::json data) {
                                           std::lock_guard lock(reply->mutex);
                                           reply->data = error ? nlohmann::json{{"error", error->code}} : data;
                                       });
        const auto replied = [reply] {
            std::lock_guard lock(reply->mutex);
            return reply->data;
        };
        ASSERT_TRUE(session.waitFor([&] { return replied().has_value(); }, 5s));
        std::fprintf(stderr, "[ measured  ] round trip after the flood: %lld ms\n",
                     static_cast<long long>(
                         std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked).count()));
        EXPECT_EQ(*replied(), (nlohmann::json{{"type", "paste"}, {"code", 0}}));
    }
    expectNothingLeftBehind();
    expectANewSessionPlays();
}

} // namespace
