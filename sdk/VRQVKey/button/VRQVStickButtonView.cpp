#include "vrq/VRQVKey/button/VRQVStickButtonView.h"

#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/model/VRQVDpadButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"

namespace {

// The image of a name, when the name is given; otherwise what was there.
void loadIfNamed(const std::optional<std::string>& name, std::shared_ptr<const vrq::Image>& image)
{
    if (name && !name->empty())
        image = VRQVGamepadUtil::loadImageFromFile(*name);
}

} // namespace

VRQVStickButtonView::VRQVStickButtonView()
    : m_innerView(std::make_shared<vrq::ImageView>())
{
    addSubview(m_innerView);
}

void VRQVStickButtonView::updateWithModel(const VRQVStickButtonModel& model)
{
    update(model.innerRadius, model.outerIconName, model.innerNormalIconName, model.innerPressedIconName);
}

void VRQVStickButtonView::updateWithModel(const VRQVDpadButtonModel& model)
{
    update(model.innerRadius, model.outerIconName, model.innerNormalIconName, model.innerPressedIconName);
}

void VRQVStickButtonView::update(const std::optional<std::string>& innerRadius,
                                 const std::optional<std::string>& outerIcon,
                                 const std::optional<std::string>& normalIcon,
                                 const std::optional<std::string>& pressedIcon)
{
    m_innerRadius = static_cast<float>(VRQVGamepadUtil::stringToPointW(innerRadius.value_or("")));
    if (outerIcon && !outerIcon->empty())
        setImage(VRQVGamepadUtil::loadImageFromFile(*outerIcon));
    loadIfNamed(normalIcon, m_innerNormalImage);
    loadIfNamed(pressedIcon, m_innerPresedImage);
    setPressedStatus(false);
}

void VRQVStickButtonView::setFrame(vrq::Rect frame)
{
    vrq::ImageView::setFrame(frame);
    m_centerX = static_cast<float>(frame.origin.x + frame.size.width / 2);
    m_centerY = static_cast<float>(frame.origin.y + frame.size.height / 2);
    m_outerRadius = static_cast<float>(frame.size.width / 2);
    setInnerCenter(m_outerRadius, frame.size.height / 2);
}

void VRQVStickButtonView::setInnerCenter(double x, double y)
{
    m_innerView->setFrame({{x - m_innerRadius, y - m_innerRadius}, {2.0 * m_innerRadius, 2.0 * m_innerRadius}});
}

void VRQVStickButtonView::setPressedStatus(bool pressed)
{
    const auto& image = pressed ? m_innerPresedImage : m_innerNormalImage;
    if (image)
        m_innerView->setImage(image);
    if (!pressed)
        setInnerCenter(m_outerRadius, bounds().size.height / 2);
}
