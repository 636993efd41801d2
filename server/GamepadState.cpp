#include "GamepadState.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace vrqserver {

using nlohmann::json;

namespace {

constexpr int kStickMin = -32768;
constexpr int kStickMax = 32767;
constexpr int kTriggerMax = 255;
constexpr std::uint32_t kMaskMax = 0xFFFF;

std::optional<double> finiteNumber(const json& input, const char* key)
{
    const auto found = input.find(key);
    if (found == input.end() || !found->is_number())
        return std::nullopt;
    const double value = found->get<double>();
    return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

// Rounded to a whole number and held to [low, high].
std::optional<int> heldNumber(const json& input, const char* key, int low, int high)
{
    const auto value = finiteNumber(input, key);
    return value ? std::optional<int>(static_cast<int>(std::clamp(std::round(*value), static_cast<double>(low), static_cast<double>(high))))
                 : std::nullopt;
}

// A whole number in [low, high]; 3.0 counts, 3.5 does not.
std::optional<std::int64_t> wholeNumber(const json& input, const char* key, std::int64_t low, std::int64_t high)
{
    const auto value = finiteNumber(input, key);
    if (!value || std::trunc(*value) != *value || *value < static_cast<double>(low) || *value > static_cast<double>(high))
        return std::nullopt;
    return static_cast<std::int64_t>(*value);
}

std::optional<bool> booleanField(const json& input, const char* key)
{
    const auto found = input.find(key);
    return found != input.end() && found->is_boolean() ? std::optional<bool>(found->get<bool>()) : std::nullopt;
}

// true/false, or 0/1 as the triggers send it.
std::optional<bool> flagField(const json& input, const char* key)
{
    if (const auto flag = booleanField(input, key))
        return flag;
    const auto number = wholeNumber(input, key, 0, 1);
    return number ? std::optional<bool>(*number == 1) : std::nullopt;
}

std::string typeOf(const json& input)
{
    const auto found = input.find("type");
    return found != input.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// The text cut to at most size bytes, without splitting a UTF-8 character.
std::string cut(std::string text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        --size;
    text.resize(size);
    return text;
}

} // namespace

bool GamepadState::apply(const json& input)
{
    if (!input.is_object())
        return false;
    const std::string type = typeOf(input);
    if (type == "gamepadconnect" || type == "gamepaddisconnect")
        return applyConnection(type == "gamepadconnect");
    if (type == "gamepadkey")
        return applyButtons(input);
    if (type == "axisleft" || type == "axisright")
        return applyStick(input, type == "axisleft" ? &Pad::left : &Pad::right);
    if (type == "lt" || type == "rt")
        return applyTrigger(input, type == "lt" ? &Pad::leftTrigger : &Pad::rightTrigger);
    if (type == "keyboard")
        return applyKeyboard(input);
    if (type == "keys_clean")
        return clearKeys();
    return false;
}

bool GamepadState::applyConnection(bool connected)
{
    std::lock_guard lock(m_mutex);
    if (!connected)
        m_pad = Pad{};
    m_pad.seen = true;
    m_pad.connected = connected;
    return true;
}

bool GamepadState::applyButtons(const json& input)
{
    const auto down = booleanField(input, "down");
    const auto mask = wholeNumber(input, "key", 1, kMaskMax);
    if (!down || !mask)
        return false;
    std::lock_guard lock(m_mutex);
    const auto bits = static_cast<std::uint32_t>(*mask);
    m_pad.buttons = *down ? m_pad.buttons | bits : m_pad.buttons & ~bits;
    m_pad.seen = m_pad.connected = true;
    return true;
}

bool GamepadState::applyStick(const json& input, Stick Pad::*stick)
{
    const auto x = heldNumber(input, "x", kStickMin, kStickMax);
    const auto y = heldNumber(input, "y", kStickMin, kStickMax);
    if (!x || !y)
        return false;
    std::lock_guard lock(m_mutex);
    m_pad.*stick = Stick{*x, *y};
    m_pad.seen = m_pad.connected = true;
    return true;
}

bool GamepadState::applyTrigger(const json& input, int Pad::*trigger)
{
    const auto value = heldNumber(input, "x", 0, kTriggerMax);
    if (!value || !flagField(input, "down"))
        return false;
    std::lock_guard lock(m_mutex);
    m_pad.*trigger = *value;
    m_pad.seen = m_pad.connected = true;
    return true;
}

bool GamepadState::applyKeyboard(const json& input)
{
    const auto down = booleanField(input, "down");
    const auto key = wholeNumber(input, "key", 0, kMaxKey);
    if (!down || !key)
        return false;
    std::lock_guard lock(m_mutex);
    if (*down)
        m_keysHeld.insert(static_cast<int>(*key));
    else
        m_keysHeld.erase(static_cast<int>(*key));
    return true;
}

bool GamepadState::clearKeys()
{
    std::lock_guard lock(m_mutex);
    m_keysHeld.clear();
    return true;
}

std::vector<json> GamepadState::recordSequence(const json& keys)
{
    std::vector<json> inputs;
    if (!keys.is_array())
        return inputs;
    std::lock_guard lock(m_mutex);
    ++m_counts.sequences;
    for (const json& key : keys) {
        ++m_counts.instructions;
        if (!key.is_string()) {
            ++m_counts.rejected;
            log(key.dump());
            continue;
        }
        const std::string& text = key.get_ref<const std::string&>();
        log(text);
        bool repaired = false;
        json input = parseInstruction(text, repaired);
        m_counts.repaired += repaired ? 1 : 0;
        if (input.is_object())
            inputs.push_back(std::move(input));
        else
            ++m_counts.rejected;
    }
    return inputs;
}

json GamepadState::parseInstruction(const std::string& text, bool& repaired)
{
    repaired = false;
    json input = json::parse(text, nullptr, false);
    if (!input.is_discarded())
        return input;
    input = json::parse(text + "}", nullptr, false);
    repaired = input.is_object();
    return input.is_object() ? input : json();
}

// Called with m_mutex held.
void GamepadState::log(std::string text)
{
    if (m_log.size() == kLogSize)
        m_log.pop_front();
    m_log.push_back(cut(std::move(text), kMaxLoggedText));
}

GamepadState::Snapshot GamepadState::snapshot() const
{
    Snapshot snapshot;
    std::lock_guard lock(m_mutex);
    snapshot.pad = m_pad;
    snapshot.keysHeld.assign(m_keysHeld.begin(), m_keysHeld.end());
    snapshot.counts = m_counts;
    snapshot.instructionLog.assign(m_log.begin(), m_log.end());
    return snapshot;
}

GamepadState::Pad GamepadState::pad() const
{
    std::lock_guard lock(m_mutex);
    return m_pad;
}

json GamepadState::describe(const Snapshot& snapshot)
{
    const Pad& pad = snapshot.pad;
    const Counts& counts = snapshot.counts;
    return {{"connected", pad.connected},
            {"buttons", pad.buttons},
            {"left_stick", {{"x", pad.left.x}, {"y", pad.left.y}}},
            {"right_stick", {{"x", pad.right.x}, {"y", pad.right.y}}},
            {"left_trigger", pad.leftTrigger},
            {"right_trigger", pad.rightTrigger},
            {"keys_held", snapshot.keysHeld},
            {"sequences", counts.sequences},
            {"instructions", counts.instructions},
            {"repaired", counts.repaired},
            {"rejected", counts.rejected},
            {"instruction_log", snapshot.instructionLog}};
}

} // namespace vrqserver
