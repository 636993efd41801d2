#include "PointerState.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace vrqserver {

using nlohmann::json;

namespace {

enum TouchEvent { kTouchDown = 0, kTouchMove = 1, kTouchUp = 2 };

std::optional<bool> booleanField(const json& message, const char* key)
{
    const auto found = message.find(key);
    return found != message.end() && found->is_boolean() ? std::optional<bool>(found->get<bool>()) : std::nullopt;
}

std::optional<double> finiteNumber(const json& message, const char* key)
{
    const auto found = message.find(key);
    if (found == message.end() || !found->is_number())
        return std::nullopt;
    const double value = found->get<double>();
    return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
}

// A whole number in [low, high]; 3.0 counts, 3.5 does not.
std::optional<int> wholeNumber(const json& message, const char* key, int low, int high)
{
    const auto value = finiteNumber(message, key);
    if (!value || std::trunc(*value) != *value || *value < low || *value > high)
        return std::nullopt;
    return static_cast<int>(*value);
}

std::optional<double> positiveNumber(const json& message, const char* key)
{
    const auto value = finiteNumber(message, key);
    return value && *value > 0 ? value : std::nullopt;
}

double unit(double value)
{
    return std::clamp(value, 0.0, 1.0);
}

std::string typeOf(const json& message)
{
    const auto found = message.find("type");
    return found != message.end() && found->is_string() ? found->get<std::string>() : std::string();
}

} // namespace

bool PointerState::apply(const json& message)
{
    if (!message.is_object())
        return false;
    const std::string type = typeOf(message);
    if (type == "event_touch")
        return applyTouch(message);
    if (type == "mousemove_v2")
        return applyMove(message, false);
    if (type == "mousedeltamove_v2")
        return applyMove(message, true);
    if (type == "mouseleft")
        return applyButton(message, &Buttons::left);
    if (type == "mouseright")
        return applyButton(message, &Buttons::right);
    if (type == "mousemiddle")
        return applyButton(message, &Buttons::middle);
    return false;
}

bool PointerState::applyTouch(const json& message)
{
    const auto finger = wholeNumber(message, "finger_id", 0, kMaxFingers - 1);
    const auto event = wholeNumber(message, "event_type", kTouchDown, kTouchUp);
    const auto x = finiteNumber(message, "x");
    const auto y = finiteNumber(message, "y");
    const auto width = positiveNumber(message, "width");
    const auto height = positiveNumber(message, "height");
    if (!finger || !event || !x || !y || !width || !height)
        return false;
    std::lock_guard lock(m_mutex);
    auto& slot = m_fingers[static_cast<std::size_t>(*finger)];
    if (*event == kTouchUp) {
        slot.reset();
        return true;
    }
    // A move is only for a finger that is down.
    if (*event == kTouchMove && !slot)
        return false;
    slot = Point{unit(*x / *width), unit(*y / *height)};
    return true;
}

bool PointerState::applyMove(const json& message, bool relative)
{
    const auto x = finiteNumber(message, "x");
    const auto y = finiteNumber(message, "y");
    if (!x || !y)
        return false;
    std::lock_guard lock(m_mutex);
    const Point from = relative ? m_pointer.value_or(Point{0.5, 0.5}) : Point{};
    m_pointer = Point{unit(from.x + *x / kMouseGrid), unit(from.y + *y / kMouseGrid)};
    m_mouseSeen = true;
    return true;
}

bool PointerState::applyButton(const json& message, bool Buttons::*button)
{
    const auto down = booleanField(message, "down");
    if (!down)
        return false;
    std::lock_guard lock(m_mutex);
    m_buttons.*button = *down;
    m_mouseSeen = true;
    return true;
}

PointerState::Snapshot PointerState::snapshot() const
{
    Snapshot snapshot;
    std::lock_guard lock(m_mutex);
    for (int id = 0; id < kMaxFingers; ++id)
        if (const auto& position = m_fingers[static_cast<std::size_t>(id)])
            snapshot.fingers.push_back({id, *position});
    snapshot.pointer = m_pointer;
    snapshot.buttons = m_buttons;
    snapshot.mouseSeen = m_mouseSeen;
    return snapshot;
}

json PointerState::describe(const Snapshot& snapshot)
{
    json fingers = json::array();
    for (const Finger& finger : snapshot.fingers)
        fingers.push_back({{"id", finger.id}, {"x", finger.position.x}, {"y", finger.position.y}});
    json pointer = snapshot.pointer ? json{{"x", snapshot.pointer->x}, {"y", snapshot.pointer->y}} : json();
    const Buttons& buttons = snapshot.buttons;
    return {{"fingers", std::move(fingers)},
            {"pointer", std::move(pointer)},
            {"buttons", {{"left", buttons.left}, {"right", buttons.right}, {"middle", buttons.middle}}}};
}

} // namespace vrqserver
