#pragma once

#include <memory>
#include <string>

class VRQModelClass;
class VRQVBaseButton;
class VRQVBaseButtonModel;

// One instruction of the gamepad: the texts it sends, the model class that
// reads its layout object, the button class that draws and drives it, and
// whether it is a game-controller control.
struct VRQVButtonInfo {
    // Makes a button of the instruction's class for a model of its model class.
    using ButtonClass = std::shared_ptr<VRQVBaseButton> (*)(std::shared_ptr<VRQVBaseButtonModel> model);

    std::string downInstruction; // empty for the composite controls
    std::string upInstruction;   // empty where nothing is sent on release
    const VRQModelClass* modelClass = nullptr;
    ButtonClass buttonClass = nullptr;
    bool isXboxButton = false;

    // A plain button (model VRQVNormalButtonModel, button VRQVNormalButton).
    static VRQVButtonInfo buttonInfoWithDown(std::string down, std::string up, bool isXBox = false);
    static VRQVButtonInfo buttonInfoWithDown(std::string down, std::string up, const VRQModelClass& modClass,
                                             ButtonClass btnClass, bool isXBox);
};
