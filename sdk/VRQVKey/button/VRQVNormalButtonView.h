#pragma once

#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Label.h"

#include <memory>

class VRQVNormalButtonViewModel;

// The look of a plain button: a background colour, an image and a centred
// bold caption that fills the view.
class VRQVNormalButtonView : public vrq::ImageView {
public:
    VRQVNormalButtonView();

    void setFrame(vrq::Rect frame) override;
    // Each step only when its text is not empty, so a look that leaves one
    // out keeps what the last look showed there.
    void updateWithModel(const VRQVNormalButtonViewModel& model);

    const std::shared_ptr<vrq::Label>& nameLab() const { return m_nameLab; }

private:
    std::shared_ptr<vrq::Label> m_nameLab;
};
