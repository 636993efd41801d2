#include "vrq/VRQVKey/button/VRQVKeyGamepad.h"

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"
#include "vrq/core/VRQGameController.h"

#include <algorithm>

VRQVKeyGamepad::VRQVKeyGamepad(vrq::Rect frame, std::weak_ptr<VRQGameController> controller)
    : vrq::View(frame)
    , m_weakController(std::move(controller))
{
}

std::shared_ptr<VRQVKeyGamepad> VRQVKeyGamepad::initWithController(std::weak_ptr<VRQGameController> controller)
{
    return initWithFrame({}, std::move(controller));
}

std::shared_ptr<VRQVKeyGamepad> VRQVKeyGamepad::initWithFrame(vrq::Rect frame,
                                                              std::weak_ptr<VRQGameController> controller)
{
    return std::make_shared<VRQVKeyGamepad>(frame, std::move(controller));
}

void VRQVKeyGamepad::showKeyGamepad(std::string_view layout)
{
    loadModelList(VRQVGamePadFactory::parseJsonCfg(layout).value_or(std::vector<std::shared_ptr<VRQVBaseButtonModel>>{}));
}

void VRQVKeyGamepad::loadModelList(std::vector<std::shared_ptr<VRQVBaseButtonModel>> models)
{
    m_modelList = std::move(models);
    for (const auto& button : m_buttonList)
        button->removeFromSuperview();
    m_buttonList.clear();
    const auto self = std::static_pointer_cast<VRQVKeyGamepad>(shared_from_this());
    for (const auto& model : m_modelList) {
        auto button = VRQVGamePadFactory::createVButton(model);
        if (!button)
            continue;
        button->setMsgSender(std::weak_ptr<VRQVBaseButtonDelegate>(self));
        m_buttonList.push_back(std::move(button));
    }
    for (const auto& button : m_buttonList)
        addSubview(button);
    m_hasGamepadButton = needConnected();
    if (m_parentWidth > 0)
        layoutSubButtons();
}

bool VRQVKeyGamepad::needConnected() const
{
    return std::any_of(m_modelList.begin(), m_modelList.end(),
                       [](const auto& model) { return model && VRQVGamePadFactory::isGamepadModel(*model); });
}

void VRQVKeyGamepad::layoutSubButtons()
{
    for (const auto& button : m_buttonList)
        button->updateWithModel(button->model());
}

void VRQVKeyGamepad::sendVKeyMessage(const nlohmann::json& message)
{
    if (auto controller = m_weakController.lock())
        controller->sendKeycodeMessage(message);
}

vrq::View* VRQVKeyGamepad::hitTest(vrq::Point point)
{
    if (!isUserInteractionEnabled() || isHidden() || alpha() <= 0.01)
        return nullptr;
    // The topmost button that takes the point; never the container itself.
    for (auto it = m_buttonList.rbegin(); it != m_buttonList.rend(); ++it) {
        const auto& button = *it;
        if (vrq::View* hit = button->hitTest(button->convertPointFromView(point, this)))
            return hit;
    }
    return nullptr;
}

void VRQVKeyGamepad::didMoveToSuperview()
{
    placeIfWidthChanged();
}

void VRQVKeyGamepad::layoutSubviews()
{
    placeIfWidthChanged();
}

void VRQVKeyGamepad::placeIfWidthChanged()
{
    const vrq::Size size = bounds().size;
    if (!superview() || size.width == m_parentWidth)
        return;
    m_parentWidth = size.width;
    VRQVGamepadUtil::setParentSize(size.width, size.height);
    layoutSubButtons();
}
