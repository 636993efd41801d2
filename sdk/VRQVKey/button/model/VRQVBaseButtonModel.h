#pragma once

#include "vrq/VRQVKey/button/model/VRQSimpleJsonModel.h"

#include <optional>
#include <string>

// What every on-screen button of a layout has: its instruction and its frame.
// Lengths are layout texts (see VRQVGamepadUtil); every property is optional.
class VRQVBaseButtonModel : public VRQSimpleJsonModel {
public:
    std::optional<std::string> key;    // the instruction name; decides the model and button classes
    std::optional<std::string> top;    // against the parent's height
    std::optional<std::string> left;   // against the parent's width
    std::optional<std::string> width;  // against the parent's width
    std::optional<std::string> height; // against the parent's width too, so that pixel sizes keep their aspect

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    bool propertyIsOptional(const std::string& /*name*/) const override { return true; }
};
