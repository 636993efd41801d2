#pragma once

#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

// A direction pad ("dpad_wdsa", "dpad_↑→↓←", "dpad_xbox"). Its four
// directions are the first four of "button_list": up, right, down, left, each
// built by its own "key". The text settings and the touch mode are kept but
// not acted on.
class VRQVDpadButtonModel : public VRQVBaseButtonModel {
public:
    std::optional<std::string> innerRadius; // "inner_radius": the dead area's radius, against the parent's width
    std::optional<std::string> textColor;   // "text_color"
    std::optional<std::string> textSize;    // "text_size"
    std::optional<std::string> outerIconName;
    std::optional<std::string> innerNormalIconName;
    std::optional<std::string> innerPressedIconName;
    std::optional<std::string> touchMode;    // "touch_mode"
    std::optional<VRQModelArray> buttonList; // "button_list"

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override;
};
