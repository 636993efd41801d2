#pragma once

#include "ChannelMessageLog.h"
#include "CursorImage.h"
#include "UdpRelay.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vrqserver {

class GameFaults;
class GameSession;

// What the game does with one session's channels:
// - "ack": every {"seq":N,"data":{"type":T,...}} is acted on and, for the
//   types that expect it, answered with {"seq":N,"data":{...}} (caps-lock
//   state, paste, auto-login, text-field hit on a left press, cursor state,
//   UDP relays); the others are only recorded. While the faults switch acks
//   off, nothing is answered.
// - "cd": the cursor image is pushed when the channel opens and sent again
//   on a "nack" for its key.
// - "sv": the game-start, archive-load and metric-key events go out when it opens.
// - "km": input toggles caps lock (key 20) and is written over the scene;
//   touches, mouse moves and buttons (the left one comes on "ack") are drawn
//   over it too (see GameSession::applyPointerInput), and so is the virtual
//   controller (see GameSession::applyGamepadInput; "keys_clean" comes on
//   "ack"). A "key_seq" is recorded and each of its texts performed in
//   order, as if it had come alone.
// - "udp_trans" relays one of the client's other channels to a UDP port on the
//   host until the session ends.
//
// Handlers run on the session's queue. The session owns its behaviour through
// the handlers it holds; the behaviour refers to the session only weakly.
class GameBehaviour {
public:
    struct Settings {
        std::string host;      // where UDP relays bind and send
        std::string metricKey; // in "metric_sig_key"
        std::string userId;    // in the auto-login event
        std::string gameId;
    };

    // Installs the handlers on a session that has not answered its offer yet.
    // The cursor and the faults may be null (no cursor; acks always answered).
    static std::shared_ptr<GameBehaviour> install(const std::shared_ptr<GameSession>& session, Settings settings,
                                                  std::shared_ptr<const CursorImage> cursor,
                                                  std::shared_ptr<const GameFaults> faults);

    bool capsLockOn() const;
    bool cursorShown() const;
    // The "data" of the last "ack" message of that type; null when none came.
    nlohmann::json lastAck(const std::string& type) const;
    std::size_t cursorAcks() const;
    // The port the relay of that channel sends from.
    std::optional<int> relayPort(const std::string& label) const;

private:
    GameBehaviour(std::weak_ptr<GameSession> session, Settings settings, std::shared_ptr<const CursorImage> cursor,
                  std::shared_ptr<const GameFaults> faults);

    void onOpen(GameSession& session, const std::string& label);
    void onAck(GameSession& session, const ChannelMessage& message);
    void onCursorData(GameSession& session, const ChannelMessage& message);
    void onInput(GameSession& session, const ChannelMessage& message);
    void perform(GameSession& session, const nlohmann::json& input);
    void onClose();
    std::optional<nlohmann::json> answerAck(GameSession& session, const nlohmann::json& data);
    nlohmann::json autoLogin(GameSession& session, const nlohmann::json& data);
    nlohmann::json udpTrans(GameSession& session, const nlohmann::json& data);
    static bool waitUntilOpen(const GameSession& session, const std::string& label);
    std::shared_ptr<UdpRelay> relay();
    bool acksAnswered() const;

    const std::weak_ptr<GameSession> m_session;
    const Settings m_settings;
    const std::shared_ptr<const CursorImage> m_cursor;
    const std::shared_ptr<const GameFaults> m_faults;

    mutable std::mutex m_mutex; // guards the members below
    bool m_capsLock = false;
    bool m_cursorShown = true;
    std::map<std::string, nlohmann::json> m_lastAcks;
    std::size_t m_cursorAcks = 0;
    std::shared_ptr<UdpRelay> m_relay;
    bool m_closed = false;
};

} // namespace vrqserver
