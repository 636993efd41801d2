#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace vrqserver {

class GameSession;

// A peer that floods the client: messages sent on a session's channels at a
// fixed rate for a while, in turn on each label, from a thread of its own.
// What goes on each label is what the client handles there:
//   "sv": {"type": "archive_load_status", "data": {"status": 0, "n": N}}
//   "km": {"cpu_usage": .., "gpu_usage": .., "screen_width": .., "screen_height": .., "n": N}
//   any other label: {"n": N}
// N counts every message of the flood from 0. One flood at a time: starting
// one stops the one running. Thread-safe.
//
// Over HTTP, on the back end's endpoint:
//   POST /control/flood?rate=N&ms=N[&labels=sv,km]   start(); 404 when there is no session
//   GET  /control/flood                               progress() as {"sent", "sent_on", "failed", "running"}
class PeerFlood {
public:
    struct Plan {
        std::vector<std::string> labels = {"sv", "km"};
        int messagesPerSecond = 10000; // over all labels together
        std::chrono::milliseconds duration{10000};
    };
    struct Progress {
        std::map<std::string, std::size_t> sentOn; // by label
        std::size_t sent = 0;
        std::size_t failed = 0; // the channel was not open or refused the message
        bool running = false;
    };

    // The highest rate and the longest flood a plan may ask for.
    static constexpr int kMaxRate = 200000;
    static constexpr std::chrono::milliseconds kMaxDuration{120000};

    explicit PeerFlood(std::function<std::shared_ptr<GameSession>()> latestSession);
    ~PeerFlood();
    PeerFlood(const PeerFlood&) = delete;
    PeerFlood& operator=(const PeerFlood&) = delete;

    // Floods the latest open session; false when there is none or the plan is
    // out of bounds (no label, a rate or duration of 0 or above the maximum).
    bool start(Plan plan);
    Progress progress() const;
    // Until the running flood has sent its last message (or was stopped).
    bool waitUntilFinished(std::chrono::milliseconds timeout) const;
    // Ends the running flood and joins its thread. Idempotent.
    void stop();

    void install(httplib::Server& server);

    // The message number n of a flood on a label.
    static std::string message(const std::string& label, std::size_t n);

private:
    void run(std::weak_ptr<GameSession> session, Plan plan);

    const std::function<std::shared_ptr<GameSession>()> m_latestSession;
    std::mutex m_controlMutex;  // serialises start() and stop()
    mutable std::mutex m_mutex; // guards the members below
    mutable std::condition_variable m_changed;
    std::thread m_thread;
    bool m_stopRequested = false;
    Progress m_progress;
};

} // namespace vrqserver
