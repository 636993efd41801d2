#pragma once

#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"

// A trigger ("trigger_lt_max", "trigger_rt_max"): a plain button whose value
// ramps while held.
class VRQVTriggerButtonModel : public VRQVNormalButtonModel {
public:
    std::optional<std::string> maxValue;   // "max_value": the full value, decimal text
    std::optional<std::string> damperStep; // "damper_step": value units per millisecond of ramp

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override;
};
