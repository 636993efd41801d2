#pragma once

#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

// The look of one state of a plain button.
class VRQVNormalButtonViewModel : public VRQVBaseButtonModel {
public:
    std::optional<std::string> bgColor;      // "bgcolor": "#RRGGBB" or "#RRGGBBAA"
    std::optional<std::string> iconFileName; // "icon_name": an image of the gamepad's image folder
    std::optional<std::string> textContent;  // "text_content": the caption
    std::optional<std::string> textColor;    // "text_color"
    std::optional<std::string> textSize;     // "text_size": a length against the parent's width

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override;
};
