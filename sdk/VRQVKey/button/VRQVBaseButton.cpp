#include "vrq/VRQVKey/button/VRQVBaseButton.h"

#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"
#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/Touch.h"

#include <algorithm>

VRQVBaseButton::VRQVBaseButton()
{
    commonInit();
}

VRQVBaseButton::VRQVBaseButton(std::weak_ptr<VRQVBaseButtonDelegate> sender)
    : m_msgSender(std::move(sender))
{
    commonInit();
}

void VRQVBaseButton::commonInit()
{
    m_canMove = false;
}

std::shared_ptr<VRQVBaseButton> VRQVBaseButton::initWithModel(std::shared_ptr<VRQVBaseButtonModel> model)
{
    auto button = std::make_shared<VRQVBaseButton>();
    button->setModel(std::move(model));
    return button;
}

void VRQVBaseButton::updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    m_model = model;
    if (!model)
        return;
    // The height is measured against the width too, so that pixel sizes keep their aspect.
    setFrame({{VRQVGamepadUtil::stringToPointW(model->left.value_or("")),
               VRQVGamepadUtil::stringToPointH(model->top.value_or(""))},
              {VRQVGamepadUtil::stringToPointW(model->width.value_or("")),
               VRQVGamepadUtil::stringToPointW(model->height.value_or(""))}});
}

void VRQVBaseButton::onPressDown(double, double) {}
void VRQVBaseButton::onMove(double, double) {}
void VRQVBaseButton::onPressUp(double, double) {}

vrq::Point VRQVBaseButton::inContainer(const vrq::Touch& touch) const
{
    return touch.locationInView(superview());
}

void VRQVBaseButton::touchesBegan(const vrq::TouchSet&, const vrq::Event& event)
{
    const auto& all = event.allTouches();
    const auto began = std::find_if(all.begin(), all.end(),
                                    [](const auto& touch) { return touch->phase() == vrq::TouchPhase::Began; });
    if (began == all.end())
        return;
    m_validTouch = *began;
    const vrq::Point point = inContainer(*m_validTouch);
    onPressDown(point.x, point.y);
}

void VRQVBaseButton::touchesMoved(const vrq::TouchSet& touches, const vrq::Event&)
{
    if (!m_canMove || !m_validTouch || m_validTouch->phase() != vrq::TouchPhase::Moved)
        return;
    if (std::find(touches.begin(), touches.end(), m_validTouch) == touches.end())
        return;
    const vrq::Point point = inContainer(*m_validTouch);
    onMove(point.x, point.y);
}

void VRQVBaseButton::touchesEnded(const vrq::TouchSet&, const vrq::Event& event)
{
    releaseTouches(event, vrq::TouchPhase::Ended);
}

void VRQVBaseButton::touchesCancelled(const vrq::TouchSet&, const vrq::Event& event)
{
    releaseTouches(event, vrq::TouchPhase::Cancelled);
}

void VRQVBaseButton::releaseTouches(const vrq::Event& event, vrq::TouchPhase phase)
{
    // A copy: a release may change the view tree, and with it the event's touches.
    const vrq::TouchSet all = event.allTouches();
    for (const auto& touch : all) {
        if (touch->phase() != phase)
            continue;
        const vrq::Point point = inContainer(*touch);
        onPressUp(point.x, point.y);
    }
}

nlohmann::json VRQVBaseButton::keySequence(std::vector<std::string> keys)
{
    return {{"type", "key_seq"}, {"keys", std::move(keys)}};
}

void VRQVBaseButton::sendKeys(std::vector<std::string> keys) const
{
    if (auto sender = m_msgSender.lock())
        sender->sendVKeyMessage(keySequence(std::move(keys)));
}
