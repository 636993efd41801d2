#include "vrq/VRQVKey/button/VRQVNormalButton.h"

#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"

VRQVNormalButton::VRQVNormalButton()
    : m_buttonView(std::make_shared<VRQVNormalButtonView>())
{
    addSubview(m_buttonView);
}

std::shared_ptr<VRQVBaseButton> VRQVNormalButton::initWithModel(std::shared_ptr<VRQVBaseButtonModel> model)
{
    auto button = std::make_shared<VRQVNormalButton>();
    button->setModel(std::move(model));
    return button;
}

const VRQVNormalButtonModel* VRQVNormalButton::normalModel() const
{
    return dynamic_cast<const VRQVNormalButtonModel*>(model().get());
}

void VRQVNormalButton::updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    VRQVBaseButton::updateWithModel(model);
    const auto* normal = normalModel();
    m_clickModel = normal ? normal->clickMode() : VRQVNormalButtonModel::Hold;
    m_buttonView->setFrame(bounds());
    if (normal && normal->normalViewModel)
        m_buttonView->updateWithModel(*normal->normalViewModel);
}

void VRQVNormalButton::onPressDown(double, double)
{
    switch (m_clickModel) {
    case VRQVNormalButtonModel::Hold:
        sendClickInstruction(true);
        setButtonStatus(Pressed);
        break;
    case VRQVNormalButtonModel::Click:
        sendClickInstruction(true);
        sendClickInstruction(false);
        setButtonStatus(Released);
        break;
    case VRQVNormalButtonModel::Toggle:
        sendClickInstruction(m_buttonStatus == Released);
        setButtonStatus(m_buttonStatus == Released ? Pressed : Released);
        break;
    default:
        break;
    }
}

void VRQVNormalButton::onPressUp(double, double)
{
    if (m_clickModel != VRQVNormalButtonModel::Hold)
        return;
    sendClickInstruction(false);
    setButtonStatus(Released);
}

void VRQVNormalButton::sendClickInstruction(bool isDown)
{
    const auto text = model() && model()->key ? VRQVGamePadFactory::getClickInstruction(*model()->key, isDown)
                                              : std::nullopt;
    if (text && !text->empty())
        sendKeys({*text});
}

void VRQVNormalButton::setButtonStatus(int status)
{
    if (status == m_buttonStatus)
        return;
    m_buttonStatus = status;
    const auto* normal = normalModel();
    if (!normal)
        return;
    const auto& look = status == Pressed ? normal->pressedViewModel : normal->normalViewModel;
    if (look)
        m_buttonView->updateWithModel(*look);
}
