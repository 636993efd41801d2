#include "vrq/control/VRQRemoteTouchScreen.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/Touch.h"

#include <bitset>
#include <charconv>
#include <cmath>
#include <cstdlib>

using json = nlohmann::json;

namespace {

// The value to the nearest tenth or hundredth (halves away from zero:
// 390.25 is 390.3), then in single precision, as the remote side reads it.
float roundedToFloat(double value, double scale)
{
    return static_cast<float>(std::round(value * scale) / scale);
}

// A float on the wire as its own shortest decimal form (390.3, not 390.29998779296875).
json floatNumber(float value)
{
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::strtod(std::string(text, result.ptr).c_str(), nullptr);
}

} // namespace

VRQRemoteTouchScreen::VRQRemoteTouchScreen(vrq::Rect frame, std::weak_ptr<VRQGameController> controller)
    : View(frame)
    , m_weakController(std::move(controller))
{
    commonInit();
}

void VRQRemoteTouchScreen::commonInit()
{
    setBackgroundColor({});
    setUserInteractionEnabled(true);
    setMultipleTouchEnabled(true);
    m_fingerIdMap.clear();
    updateMaxSize();
}

void VRQRemoteTouchScreen::setFrame(vrq::Rect frame)
{
    View::setFrame(frame);
    updateMaxSize();
}

void VRQRemoteTouchScreen::updateMaxSize()
{
    m_maxWidth = roundedToFloat(frame().size.width, 10);
    m_maxHeight = roundedToFloat(frame().size.height, 10);
}

// Below 0.001 (negatives too) the integer 0; at or past the view's size, the
// view's size; else to two decimals.
json VRQRemoteTouchScreen::convert(double value, double extent, float maxValue)
{
    if (value < 0.001)
        return 0;
    if (value >= extent)
        return floatNumber(maxValue);
    return floatNumber(roundedToFloat(value, 100));
}

json VRQRemoteTouchScreen::convertX(double x) const
{
    return convert(x, frame().size.width, m_maxWidth);
}

json VRQRemoteTouchScreen::convertY(double y) const
{
    return convert(y, frame().size.height, m_maxHeight);
}

// The lowest free id of ten; with ten fingers down, an eleventh takes id 9
// from the tenth, which takes it back at its next event (kept as it is).
int VRQRemoteTouchScreen::mapTouchFingerId(const std::shared_ptr<vrq::Touch>& touch)
{
    if (m_fingerIdMap.empty()) {
        m_fingerIdMap[0] = touch;
        return 0;
    }
    for (const auto& [id, known] : m_fingerIdMap) {
        if (known == touch)
            return id;
    }
    std::bitset<32> used;
    for (const auto& entry : m_fingerIdMap)
        used.set(static_cast<std::size_t>(entry.first % 32));
    int id = kMaxFingers - 1;
    for (int candidate = 0; candidate < kMaxFingers; ++candidate) {
        if (!used.test(static_cast<std::size_t>(candidate))) {
            id = candidate;
            break;
        }
    }
    m_fingerIdMap[id] = touch;
    return id;
}

void VRQRemoteTouchScreen::sendTouch(const std::shared_ptr<vrq::Touch>& touch, EventType type)
{
    const int fingerId = mapTouchFingerId(touch);
    const vrq::Point location = touch->locationInView(superview());
    const json message = {{"type", "event_touch"}, {"touch_id", 0},          {"finger_id", fingerId},
                          {"event_type", type},   {"x", convertX(location.x)}, {"y", convertY(location.y)},
                          {"width", floatNumber(m_maxWidth)}, {"height", floatNumber(m_maxHeight)},
                          {"pressure", 1},        {"timestamp", touch->timestamp()}};
    if (auto controller = m_weakController.lock())
        controller->sendKeycodeMessage(message);
    if (type == Up)
        m_fingerIdMap.erase(fingerId);
}

void VRQRemoteTouchScreen::touchesBegan(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesBegan(touches, event);
    for (const auto& touch : event.allTouches()) {
        if (touch->phase() == vrq::TouchPhase::Began)
            sendTouch(touch, Down);
    }
}

void VRQRemoteTouchScreen::touchesMoved(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesMoved(touches, event);
    for (const auto& touch : touches) {
        if (touch->phase() == vrq::TouchPhase::Moved)
            sendTouch(touch, Move);
    }
}

void VRQRemoteTouchScreen::touchesEnded(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesEnded(touches, event);
    for (const auto& touch : event.allTouches()) {
        if (touch->phase() == vrq::TouchPhase::Ended)
            sendTouch(touch, Up);
    }
}

void VRQRemoteTouchScreen::touchesCancelled(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesCancelled(touches, event);
    for (const auto& touch : event.allTouches()) {
        if (touch->phase() == vrq::TouchPhase::Cancelled)
            sendTouch(touch, Up);
    }
}
