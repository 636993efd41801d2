#include "vrq/VRQVKey/button/VRQVDPadButton.h"

#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/model/VRQVDpadButtonModel.h"

#include <cmath>
#include <numbers>

namespace {

constexpr double kPi = std::numbers::pi;

// Clockwise from straight up, in radians.
double angleOfOffset(double dx, double dy)
{
    if (std::fabs(dx) > 0.00001)
        return std::atan(dy / dx) + (dx > 0 ? kPi / 2 : 3 * kPi / 2);
    return dy < 0.00001 ? 0 : kPi;
}

} // namespace

VRQVDPadButton::VRQVDPadButton()
    : m_buttonView(std::make_shared<VRQVStickButtonView>())
{
    setCanMove(true);
    addSubview(m_buttonView);
}

std::shared_ptr<VRQVBaseButton> VRQVDPadButton::initWithModel(std::shared_ptr<VRQVBaseButtonModel> model)
{
    auto button = std::make_shared<VRQVDPadButton>();
    button->setModel(std::move(model));
    return button;
}

void VRQVDPadButton::updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    VRQVBaseButton::updateWithModel(model);
    const vrq::Rect placed = frame();
    m_touchOriginX = placed.origin.x + placed.size.width / 2;
    m_touchOriginY = placed.origin.y + placed.size.height / 2;
    m_lastButtons = -1;
    m_buttonView->setFrame(bounds());
    if (const auto* pad = dynamic_cast<const VRQVDpadButtonModel*>(model.get()))
        m_buttonView->updateWithModel(*pad);
}

std::int32_t VRQVDPadButton::calcPressedButtons(double sideX, double sideY)
{
    // Sectors of the angle shifted by half the first one, as single-precision
    // bounds. Straight up is 30 degrees wide, the diagonals 60, and 345 to 360
    // degrees selects nothing: the pad has always had this shape.
    static const struct {
        float below;
        std::int32_t mask;
    } sectors[] = {
        {static_cast<float>(kPi / 6), 1},     {static_cast<float>(kPi / 2), 3},
        {static_cast<float>(2 * kPi / 3), 2}, {static_cast<float>(kPi), 6},
        {static_cast<float>(7 * kPi / 6), 4}, {static_cast<float>(3 * kPi / 2), 12},
        {static_cast<float>(5 * kPi / 3), 8}, {static_cast<float>(2 * kPi), 9},
    };
    double shifted = angleOfOffset(sideX, sideY) + kPi / 12;
    // The angle stays below 2 pi, so this wrap never fires; it is kept as it is.
    if (shifted >= static_cast<float>(6 * kPi))
        shifted -= 6 * kPi;
    for (const auto& sector : sectors) {
        if (shifted < sector.below)
            return sector.mask;
    }
    return 0;
}

void VRQVDPadButton::onPressDown(double x, double y)
{
    const vrq::Rect placed = frame();
    m_buttonView->setInnerCenter(x - placed.origin.x, y - placed.origin.y);
    m_buttonView->setPressedStatus(true);
    const double dx = x - m_touchOriginX;
    const double dy = y - m_touchOriginY;
    if (std::hypot(dx, dy) > m_buttonView->innerRadius())
        sendMessage(calcPressedButtons(dx, dy));
}

void VRQVDPadButton::onMove(double x, double y)
{
    const double dx = x - m_touchOriginX;
    const double dy = y - m_touchOriginY;
    const double distance = std::hypot(dx, dy);
    const double outer = m_buttonView->outerRadius();
    double knobX = x;
    double knobY = y;
    if (distance > outer) {
        const double angle = angleOfOffset(dx, dy);
        knobX = m_touchOriginX + std::sin(angle) * outer;
        knobY = m_touchOriginY - std::cos(angle) * outer;
    }
    const vrq::Rect placed = frame();
    m_buttonView->setInnerCenter(knobX - placed.origin.x, knobY - placed.origin.y);
    sendMessage(distance >= m_buttonView->innerRadius() ? calcPressedButtons(dx, dy) : 0);
}

void VRQVDPadButton::onPressUp(double, double)
{
    m_buttonView->setPressedStatus(false);
    sendMessage(0);
}

void VRQVDPadButton::sendMessage(std::int32_t buttons)
{
    if (buttons == m_lastButtons)
        return;
    const std::int32_t changed = m_lastButtons ^ buttons;
    const std::int32_t released = changed & m_lastButtons;
    const std::int32_t pressed = changed & buttons;
    std::vector<std::string> keys;
    // Bits upward while 2^bit <= mask, compared signed: a negative mask (the
    // all-ones state after a layout) sends nothing.
    const auto collect = [&](std::int32_t mask, bool isDown) {
        for (int bit = 0; bit < 31 && (std::int64_t{1} << bit) <= mask; ++bit) {
            if (mask & (1 << bit)) {
                if (auto text = directionText(bit, isDown); !text.empty())
                    keys.push_back(std::move(text));
            }
        }
    };
    collect(released, false);
    collect(pressed, true);
    m_lastButtons = buttons;
    if (!keys.empty())
        sendKeys(std::move(keys));
}

std::string VRQVDPadButton::directionText(int bit, bool isDown) const
{
    const auto* pad = dynamic_cast<const VRQVDpadButtonModel*>(model().get());
    if (!pad || !pad->buttonList || static_cast<std::size_t>(bit) >= pad->buttonList->size())
        return {};
    const auto* element = std::get_if<std::shared_ptr<VRQSimpleJsonModel>>(&(*pad->buttonList)[bit]);
    const auto* direction = element ? dynamic_cast<const VRQVBaseButtonModel*>(element->get()) : nullptr;
    if (!direction || !direction->key)
        return {};
    return VRQVGamePadFactory::getClickInstruction(*direction->key, isDown).value_or("");
}
