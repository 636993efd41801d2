#include "vrq/VRQVKey/button/VRQVNormalButtonView.h"

#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonViewModel.h"

namespace {

// The text when it is set and not empty.
const std::string* given(const std::optional<std::string>& text)
{
    return text && !text->empty() ? &*text : nullptr;
}

} // namespace

VRQVNormalButtonView::VRQVNormalButtonView()
    : m_nameLab(std::make_shared<vrq::Label>())
{
    m_nameLab->setTextAlignment(vrq::TextAlignment::Center);
    m_nameLab->setBold(true);
    addSubview(m_nameLab);
}

void VRQVNormalButtonView::setFrame(vrq::Rect frame)
{
    vrq::ImageView::setFrame(frame);
    m_nameLab->setFrame(bounds());
}

void VRQVNormalButtonView::updateWithModel(const VRQVNormalButtonViewModel& model)
{
    if (const auto* color = given(model.bgColor))
        setBackgroundColor(VRQVGamepadUtil::colorFromString(*color));
    if (const auto* icon = given(model.iconFileName))
        setImage(VRQVGamepadUtil::loadImageFromFile(*icon));
    if (const auto* text = given(model.textContent))
        m_nameLab->setText(*text);
    if (const auto* size = given(model.textSize))
        m_nameLab->setFontSize(VRQVGamepadUtil::stringToPointW(*size));
    if (const auto* color = given(model.textColor))
        m_nameLab->setTextColor(VRQVGamepadUtil::colorFromString(*color));
}
