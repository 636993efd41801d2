#pragma once

#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

// An analogue stick ("stick_left", "stick_right"): its knob and images.
class VRQVStickButtonModel : public VRQVBaseButtonModel {
public:
    std::optional<std::string> innerRadius;         // "inner_radius": the knob's radius, against the parent's width
    std::optional<std::string> outerIconName;       // "outer_icon_name": the base
    std::optional<std::string> innerNormalIconName;  // "inner_normal_icon_name": the knob at rest
    std::optional<std::string> innerPressedIconName; // "inner_pressed_icon_name": the knob while touched

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override;
};
