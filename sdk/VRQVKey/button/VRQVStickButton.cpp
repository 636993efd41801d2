#include "vrq/VRQVKey/button/VRQVStickButton.h"

#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>

namespace {

constexpr double kPi = std::numbers::pi;
// The return series reaches (0, 0) within four steps; this only bounds the loop.
constexpr int kMaxReturnSteps = 8;

// Clockwise from straight up, in radians; a touch on the origin points down.
double angleOfOffset(double dx, double dy)
{
    if (std::fabs(dx) > 0.00001)
        return std::atan(dy / dx) + (dx > 0 ? kPi / 2 : 3 * kPi / 2);
    return dy < 0 ? 0 : kPi;
}

} // namespace

VRQVStickButton::VRQVStickButton()
    : m_buttonView(std::make_shared<VRQVStickButtonView>())
{
    setCanMove(true);
    addSubview(m_buttonView);
}

std::shared_ptr<VRQVBaseButton> VRQVStickButton::initWithModel(std::shared_ptr<VRQVBaseButtonModel> model)
{
    auto button = std::make_shared<VRQVStickButton>();
    button->setModel(std::move(model));
    return button;
}

void VRQVStickButton::updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    VRQVBaseButton::updateWithModel(model);
    const vrq::Rect placed = frame();
    m_touchOriginX = placed.origin.x + placed.size.width / 2;
    m_touchOriginY = placed.origin.y + placed.size.height / 2;
    m_buttonView->setFrame(bounds());
    if (const auto* stick = dynamic_cast<const VRQVStickButtonModel*>(model.get()))
        m_buttonView->updateWithModel(*stick);
    m_buttonView->setHidden(false);
    const std::string key = model && model->key ? *model->key : std::string();
    if (key == "stick_left") {
        m_keyType = "axisleft";
    } else if (key == "stick_right") {
        m_keyType = "axisright";
    } else {
        m_keyType.reset();
        m_buttonView->setHidden(true);
    }
}

void VRQVStickButton::onPressDown(double x, double y)
{
    // The knob goes to the touch as given, in the container's coordinates:
    // the first move puts it right, and the stick has always drawn it so.
    m_buttonView->setInnerCenter(x, y);
    m_buttonView->setPressedStatus(true);
}

void VRQVStickButton::onMove(double x, double y)
{
    const double dx = x - m_touchOriginX;
    const double dy = y - m_touchOriginY;
    const double angle = angleOfOffset(dx, dy);
    const float distance = std::sqrt(static_cast<float>(dx * dx + dy * dy));
    const float rim = m_buttonView->outerRadius();
    std::int32_t magnitude = kAxisMax;
    double knobX = x;
    double knobY = y;
    if (distance <= rim) {
        magnitude = rim > 0 ? static_cast<std::int32_t>(std::trunc(distance * kAxisMax / rim)) : 0;
    } else {
        knobX = m_touchOriginX + std::sin(angle) * rim;
        knobY = m_touchOriginY - std::cos(angle) * rim;
    }
    const vrq::Rect placed = frame();
    m_buttonView->setInnerCenter(knobX - placed.origin.x, knobY - placed.origin.y);
    sendInstruction(static_cast<std::int32_t>(std::trunc(std::sin(angle) * magnitude)),
                    static_cast<std::int32_t>(std::trunc(std::cos(angle) * magnitude)));
}

void VRQVStickButton::onPressUp(double, double)
{
    m_buttonView->setPressedStatus(false);
    damperToZero();
}

std::string VRQVStickButton::axisText(std::int32_t x, std::int32_t y) const
{
    char text[96];
    std::snprintf(text, sizeof text, "{\"type\":\"%s\",\"x\":%d,\"y\":%d}", m_keyType->c_str(), x, y);
    return text;
}

void VRQVStickButton::sendInstruction(std::int32_t x, std::int32_t y)
{
    if (!m_keyType)
        return;
    m_lastX = x;
    m_lastY = y;
    sendKeys({axisText(x, y)});
}

void VRQVStickButton::damperToZero()
{
    if (!m_keyType)
        return;
    // The last pair is kept: a later tap without a move sends the same series.
    const std::int32_t stepX = m_lastX / 3;
    const std::int32_t stepY = m_lastY / 3;
    std::int32_t x = m_lastX - stepX;
    std::int32_t y = m_lastY - stepY;
    std::vector<std::string> keys;
    for (int step = 0; step < kMaxReturnSteps; ++step) {
        if (std::abs(x) < kSnapToZero)
            x = 0;
        if (std::abs(y) < kSnapToZero)
            y = 0;
        keys.push_back(axisText(x, y));
        if (x == 0 && y == 0)
            break;
        x -= stepX;
        y -= stepY;
    }
    sendKeys(std::move(keys));
}
