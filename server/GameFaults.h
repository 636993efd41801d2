#pragma once

#include "LinkImpairment.h"
#include "PeerFlood.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace httplib {
class Server;
}

namespace vrqserver {

class GameServer;
class GameSession;

// How the back end answers offers (client sessions, reconnects, experience codes).
enum class AnswerMode {
    Normal,
    // A remote session {"code":403} without an answer.
    Refuse,
    // Answered as usual, after a delay.
    Delay,
};

// Faults a test or a person injects into the running game, to see how the
// client copes. Thread-safe. The "latest session" is the game server's most
// recently created one.
//
// Also reachable over HTTP, on the back end's endpoint (every route is a POST
// and answers {"code":0}, 400 on bad parameters, 404 when there is no session):
//   /control/drop                         dropPeer()
//   /control/freeze?on=1|0                setVideoFrozen()
//   /control/link?loss=F&delay_ms=N&jitter_ms=N&seed=N   setLinkConditions()
//                                         (loss 0 to 1, times 0 to 10000; a missing value is 0, the seed 1)
//   /control/disconnect?code=N            sendDisconnectCode() (N as JSON when it parses, else as text)
//   /control/answers?mode=normal|refuse|delay&ms=N   setAnswerMode()
//   /control/acks?on=1|0                  setAcksAnswered()
//   /control/sv   body {"type":..,"data":..}          sendServerEvent()
//   /control/flood                        flood() (see PeerFlood)
class GameFaults {
public:
    // The longest an answer is delayed, whatever the mode asks.
    static constexpr std::chrono::milliseconds kMaxAnswerDelay{30000};

    explicit GameFaults(std::weak_ptr<GameServer> server);

    // Closes the latest session abruptly: its media and channels just stop.
    // False when there is no open session.
    bool dropPeer();
    // The latest and every later session send no video frames (audio and
    // channels go on) until unfrozen; unfreezing resumes every session.
    void setVideoFrozen(bool frozen);
    bool videoFrozen() const { return m_videoFrozen.load(); }
    // The latest and every later session's video goes through a link with
    // these conditions; a clean link applies to every session at once.
    void setLinkConditions(const LinkConditions& conditions);
    LinkConditions linkConditions() const;
    // Sends {"code": code} on the latest session's "hb"; false when it cannot.
    bool sendDisconnectCode(nlohmann::json code);
    // Sends {"type": type, "data": data} on the latest session's "sv"; false when it cannot.
    bool sendServerEvent(const std::string& type, nlohmann::json data);
    // Floods the latest session's channels (stopped by shutdown()).
    PeerFlood& flood() { return m_flood; }

    void setAnswerMode(AnswerMode mode, std::chrono::milliseconds delay = std::chrono::milliseconds(0));
    AnswerMode answerMode() const;
    // Whether an offer is to be answered now: false when answers are refused.
    // In Delay mode it first waits the delay (bounded, and cut short by shutdown()).
    bool admitAnswer() const;

    // While off, nothing on "ack" is answered (messages are still recorded and acted on).
    void setAcksAnswered(bool answered) { m_acksAnswered.store(answered); }
    bool acksAnswered() const { return m_acksAnswered.load(); }

    // For a session as it starts: the freeze and the link in force.
    void applyTo(GameSession& session) const;
    void install(httplib::Server& server);
    // Ends delayed answers' waits at once, now and later.
    void shutdown();

private:
    std::shared_ptr<GameSession> latestSession() const;

    const std::weak_ptr<GameServer> m_server;
    std::atomic<bool> m_videoFrozen = false;
    std::atomic<bool> m_acksAnswered = true;
    mutable std::mutex m_mutex; // guards the members below
    mutable std::condition_variable m_shutdownSignal;
    AnswerMode m_answerMode = AnswerMode::Normal;
    std::chrono::milliseconds m_answerDelay{0};
    LinkConditions m_link;
    bool m_shutdown = false;
    PeerFlood m_flood{[this] { return latestSession(); }};
};

} // namespace vrqserver
