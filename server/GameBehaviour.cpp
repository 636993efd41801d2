#include "GameBehaviour.h"

#include "GameFaults.h"
#include "GameSession.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <thread>

namespace vrqserver {

using nlohmann::json;

namespace {

constexpr int kCapsLockKey = 20;
// The game's own channels, which a relay must not take over.
constexpr const char* kFixedLabels[] = {"hb", "ack", "sv", "cd", "km"};

std::string dumped(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Whole numbers only: the scene has no room for fractions of a pixel.
std::string numberText(const json& value)
{
    if (value.is_number_float())
        return std::to_string(static_cast<long long>(std::trunc(value.get<double>())));
    return value.is_number() ? value.dump() : std::string("?");
}

// The member as text; empty when it is missing or not a string.
std::string stringField(const json& object, const char* key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

bool isTrue(const json& object, const char* key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

// A short line for the scene: "keyboard 65 down", "mouse 4096,100", "axisleft 16383,-32767", "rt 255".
std::string describeInput(const json& input)
{
    const std::string type = stringField(input, "type");
    std::string line = type.find("deltamove") != std::string::npos ? "mouse delta"
                       : type.find("move") != std::string::npos ? "mouse"
                                                                 : type;
    if (const auto key = input.find("key"); key != input.end())
        line += " " + numberText(*key);
    if (input.contains("x") && input.contains("y"))
        line += " " + numberText(input["x"]) + "," + numberText(input["y"]);
    else if (input.contains("x"))
        line += " " + numberText(input["x"]);
    if (const auto delta = input.find("delta"); delta != input.end())
        line += " " + numberText(*delta);
    if (const auto down = input.find("down"); down != input.end() && down->is_boolean())
        line += down->get<bool>() ? " down" : " up";
    return line;
}

bool isKeyDown(const json& input, int key)
{
    const auto found = input.find("key");
    return stringField(input, "type") == "keyboard" && found != input.end() && found->is_number_integer() &&
           found->get<std::int64_t>() == key && isTrue(input, "down");
}

} // namespace

GameBehaviour::GameBehaviour(std::weak_ptr<GameSession> session, Settings settings,
                             std::shared_ptr<const CursorImage> cursor, std::shared_ptr<const GameFaults> faults)
    : m_session(std::move(session))
    , m_settings(std::move(settings))
    , m_cursor(std::move(cursor))
    , m_faults(std::move(faults))
{
}

std::shared_ptr<GameBehaviour> GameBehaviour::install(const std::shared_ptr<GameSession>& session, Settings settings,
                                                      std::shared_ptr<const CursorImage> cursor,
                                                      std::shared_ptr<const GameFaults> faults)
{
    std::shared_ptr<GameBehaviour> behaviour(
        new GameBehaviour(session, std::move(settings), std::move(cursor), std::move(faults)));
    session->setChannelHandler("ack", [behaviour](GameSession& s, const ChannelMessage& m) { behaviour->onAck(s, m); });
    session->setChannelHandler("cd", [behaviour](GameSession& s, const ChannelMessage& m) { behaviour->onCursorData(s, m); });
    session->setChannelHandler("km", [behaviour](GameSession& s, const ChannelMessage& m) { behaviour->onInput(s, m); });
    session->setOpenHandler([behaviour](GameSession& s, const std::string& label) { behaviour->onOpen(s, label); });
    session->addCloseHandler([behaviour] { behaviour->onClose(); });
    return behaviour;
}

void GameBehaviour::onOpen(GameSession& session, const std::string& label)
{
    if (label == "cd" && m_cursor) {
        session.send("cd", dumped(m_cursor->message()));
    } else if (label == "sv") {
        session.send("sv", dumped({{"type", "game_start_complete"}, {"data", {{"status", 0}}}}));
        session.send("sv", dumped({{"type", "archive_load_status"}, {"data", {{"status", 0}}}}));
        session.send("sv", dumped({{"type", "metric_sig_key"}, {"data", {{"sig_key", m_settings.metricKey}}}}));
    }
}

void GameBehaviour::onInput(GameSession& session, const ChannelMessage& message)
{
    const json input = json::parse(message.bytes, nullptr, false);
    if (message.isBinary || !input.is_object())
        return;
    if (stringField(input, "type") != "key_seq") {
        perform(session, input);
        return;
    }
    // Each text of a key sequence is performed as if it had come alone.
    for (const json& instruction : session.recordKeySequence(input.value("keys", json())))
        perform(session, instruction);
}

void GameBehaviour::perform(GameSession& session, const json& input)
{
    if (isKeyDown(input, kCapsLockKey)) {
        std::lock_guard lock(m_mutex);
        m_capsLock = !m_capsLock;
    }
    session.applyPointerInput(input);
    session.applyGamepadInput(input);
    session.setSceneText(describeInput(input));
}

void GameBehaviour::onCursorData(GameSession& session, const ChannelMessage& message)
{
    const json report = json::parse(message.bytes, nullptr, false);
    if (!report.is_object())
        return;
    const std::string type = stringField(report, "type");
    if (type == "ack") {
        std::lock_guard lock(m_mutex);
        ++m_cursorAcks;
    } else if (type == "nack" && m_cursor && stringField(report, "data_type") == "mouse" &&
               stringField(report, "data_key") == m_cursor->key()) {
        session.send("cd", dumped(m_cursor->message()));
    }
}

void GameBehaviour::onAck(GameSession& session, const ChannelMessage& message)
{
    const json envelope = json::parse(message.bytes, nullptr, false);
    if (!envelope.is_object() || !envelope.contains("data") || !envelope["data"].is_object() ||
        !envelope["data"].contains("type") || !envelope["data"]["type"].is_string())
        return;
    const json& data = envelope["data"];
    {
        std::lock_guard lock(m_mutex);
        m_lastAcks[data["type"].get<std::string>()] = data;
    }
    // The left button and the release of every key come here, the other input on "km".
    if (data["type"] == "mouseleft")
        session.applyPointerInput(data);
    else if (data["type"] == "keys_clean")
        session.applyGamepadInput(data);
    const auto answer = answerAck(session, data);
    if (!answer || !acksAnswered())
        return;
    session.send("ack", dumped({{"seq", envelope.value("seq", json())}, {"data", *answer}}));
    if (data["type"] == "auto_login" && (*answer)["result"] == 0)
        session.send("sv", dumped({{"type", "auto_login"},
                                   {"data", {{"status", 0}, {"user_id", m_settings.userId}, {"game_id", m_settings.gameId}}}}));
}

// The reply's "data" for an ack message, after acting on it; nothing for the
// types that expect no reply.
std::optional<json> GameBehaviour::answerAck(GameSession& session, const json& data)
{
    const std::string type = data["type"];
    if (type == "udp_trans")
        return udpTrans(session, data);
    std::lock_guard lock(m_mutex);
    if (type == "capslock_state")
        return json{{"type", type}, {"state", m_capsLock ? "upper" : "lower"}};
    if (type == "cursor_state")
        return json{{"type", type}, {"state", m_cursorShown ? "showing" : "hidden"}};
    if (type == "set_cursor") {
        const json show = data.value("show", json(1));
        m_cursorShown = show.is_boolean() ? show.get<bool>() : !(show.is_number() && show.get<double>() == 0);
        return std::nullopt;
    }
    if (type == "paste")
        return json{{"type", type}, {"code", 0}};
    if (type == "mouseleft") {
        if (!isTrue(data, "down"))
            return std::nullopt;
        return json{{"type", type}, {"status", "enabled"}, {"hit_input", true}, {"enable_auto_login", false}};
    }
    if (type == "auto_login")
        return json{{"type", type}, {"result", !stringField(data, "user_name").empty() && !stringField(data, "psw").empty() ? 0 : 3}};
    return std::nullopt;
}

// The client asks for the binding as soon as it sees its channel open, on
// another channel: the request can overtake the channel's opening here.
bool GameBehaviour::waitUntilOpen(const GameSession& session, const std::string& label)
{
    constexpr auto kStep = std::chrono::milliseconds(10);
    constexpr int kSteps = 100; // one second at most
    for (int step = 0; step < kSteps; ++step) {
        const auto open = session.openChannels();
        if (std::find(open.begin(), open.end(), label) != open.end())
            return true;
        std::this_thread::sleep_for(kStep);
    }
    return false;
}

json GameBehaviour::udpTrans(GameSession& session, const json& data)
{
    const json port = data.value("dest_port", json());
    const json label = data.value("label", json());
    json reply = {{"type", "udp_trans"}, {"label", label}, {"code", 1}};
    if (!port.is_number_integer() || port.get<std::int64_t>() < 1 || port.get<std::int64_t>() > 65535 || !label.is_string())
        return reply;
    const std::string name = label.get<std::string>();
    if (std::find(std::begin(kFixedLabels), std::end(kFixedLabels), name) != std::end(kFixedLabels)
        || !waitUntilOpen(session, name))
        return reply;
    auto relay = this->relay();
    if (!relay || !relay->addRoute(name, port.get<int>()))
        return reply;
    session.setChannelHandler(name, [relay, name](GameSession&, const ChannelMessage& message) { relay->send(name, message.bytes); });
    reply["code"] = 0;
    return reply;
}

// The session's relay, made on first use; none once the session has closed.
std::shared_ptr<UdpRelay> GameBehaviour::relay()
{
    std::lock_guard lock(m_mutex);
    if (m_closed)
        return nullptr;
    if (!m_relay)
        m_relay = std::make_shared<UdpRelay>(m_settings.host, [session = m_session](const std::string& label, const std::string& bytes) {
            if (auto live = session.lock())
                live->sendBinary(label, bytes);
        });
    return m_relay;
}

void GameBehaviour::onClose()
{
    std::shared_ptr<UdpRelay> relay;
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        relay = std::move(m_relay);
    }
    if (relay)
        relay->stop();
}

bool GameBehaviour::acksAnswered() const
{
    return !m_faults || m_faults->acksAnswered();
}

bool GameBehaviour::capsLockOn() const
{
    std::lock_guard lock(m_mutex);
    return m_capsLock;
}

bool GameBehaviour::cursorShown() const
{
    std::lock_guard lock(m_mutex);
    return m_cursorShown;
}

json GameBehaviour::lastAck(const std::string& type) const
{
    std::lock_guard lock(m_mutex);
    auto found = m_lastAcks.find(type);
    return found == m_lastAcks.end() ? json() : found->second;
}

std::size_t GameBehaviour::cursorAcks() const
{
    std::lock_guard lock(m_mutex);
    return m_cursorAcks;
}

std::optional<int> GameBehaviour::relayPort(const std::string& label) const
{
    std::shared_ptr<UdpRelay> relay;
    {
        std::lock_guard lock(m_mutex);
        relay = m_relay;
    }
    return relay ? relay->localPort(label) : std::nullopt;
}

} // namespace vrqserver
