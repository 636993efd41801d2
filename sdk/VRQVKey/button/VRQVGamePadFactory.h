#pragma once

#include "vrq/VRQVKey/button/VRQVButtonInfo.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class VRQVBaseButton;
class VRQVBaseButtonModel;

// The gamepad's instruction table (102 names, each with its texts, classes
// and controller flag), and the operations that turn layout text into models
// and models into buttons. The table is built once and then only read, so
// these may be called from any thread; models and buttons are made on the
// main thread.
class VRQVGamePadFactory {
public:
    // A layout holds at most this many buttons; the rest are dropped (logged).
    static constexpr std::size_t kMaxButtons = 256;
    // Layout text nested deeper than this is refused (logged).
    static constexpr int kMaxNesting = 32;

    // The models of a layout (an array of button objects, or one object), in
    // order; buttons with an unknown or empty "key" are skipped. Nothing,
    // with the log line "parseJsonCfg failed:...", when the text is not JSON.
    static std::optional<std::vector<std::shared_ptr<VRQVBaseButtonModel>>> parseJsonCfg(std::string_view text);
    // One button object as the model class of its "key"; nothing when the
    // key is missing, empty or unknown.
    static std::shared_ptr<VRQVBaseButtonModel> parseJsonObject(const nlohmann::json& object);
    // A new button of the model's instruction, or nothing for an unknown key.
    static std::shared_ptr<VRQVBaseButton> createVButton(const std::shared_ptr<VRQVBaseButtonModel>& model);
    // The instruction's down or up text; nothing for an empty or unknown name.
    static std::optional<std::string> getClickInstruction(std::string_view name, bool isDown);
    // Whether the model's instruction is a game-controller control.
    static bool isGamepadModel(const VRQVBaseButtonModel& model);

    // The table entry of a name, or null.
    static const VRQVButtonInfo* buttonInfo(std::string_view name);
    static const std::map<std::string, VRQVButtonInfo, std::less<>>& instructionTable();
};
