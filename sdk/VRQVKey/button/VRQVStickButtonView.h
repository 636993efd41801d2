#pragma once

#include "vrq/platform/views/ImageView.h"

#include <memory>
#include <optional>
#include <string>

class VRQVDpadButtonModel;
class VRQVStickButtonModel;

// The base and knob of a stick or direction pad: the base image fills the
// view, the knob (a square of side twice the inner radius) is placed by its
// centre in the view's own coordinates. Images are stretched to fill.
class VRQVStickButtonView : public vrq::ImageView {
public:
    VRQVStickButtonView();

    void updateWithModel(const VRQVStickButtonModel& model);
    void updateWithModel(const VRQVDpadButtonModel& model);
    // Centre and outer radius follow the frame; the knob goes to the middle.
    void setFrame(vrq::Rect frame) override;
    void setInnerCenter(double x, double y);
    // The pressed or the resting knob image (when there is one); a release
    // puts the knob back in the middle.
    void setPressedStatus(bool pressed);

    float centerX() const { return m_centerX; }
    float centerY() const { return m_centerY; }
    float outerRadius() const { return m_outerRadius; }
    float innerRadius() const { return m_innerRadius; }
    const std::shared_ptr<vrq::ImageView>& innerView() const { return m_innerView; }

private:
    void update(const std::optional<std::string>& innerRadius, const std::optional<std::string>& outerIcon,
                const std::optional<std::string>& normalIcon, const std::optional<std::string>& pressedIcon);

    float m_centerX = 0;
    float m_centerY = 0;
    float m_outerRadius = 0;
    float m_innerRadius = 0;
    std::shared_ptr<vrq::ImageView> m_innerView;
    std::shared_ptr<const vrq::Image> m_innerNormalImage;
    std::shared_ptr<const vrq::Image> m_innerPresedImage;
};
