#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"

#include "vrq/VRQVKey/button/VRQVDPadButton.h"
#include "vrq/VRQVKey/button/VRQVStickButton.h"
#include "vrq/VRQVKey/button/VRQVTriggerButton.h"
#include "vrq/VRQVKey/button/model/VRQVDpadButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVTriggerButtonModel.h"
#include "vrq/log/VRQLog.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <algorithm>
#include <set>

using nlohmann::json;

namespace {

using Table = std::map<std::string, VRQVButtonInfo, std::less<>>;

std::string mouseText(const char* type, bool down)
{
    return std::string("{\"type\": \"") + type + "\",\"down\": " + (down ? "true" : "false") + "}";
}

std::string keyText(const char* type, bool down, int key)
{
    return std::string("{\"type\": \"") + type + "\",\"down\": " + (down ? "true" : "false") +
           ",\"key\": " + std::to_string(key) + "}";
}

void addMouse(Table& table)
{
    for (const char* button : {"left", "right", "middle"}) {
        const std::string type = std::string("mouse") + button;
        table.emplace(std::string("mouse_") + button,
                      VRQVButtonInfo::buttonInfoWithDown(mouseText(type.c_str(), true), mouseText(type.c_str(), false)));
    }
    // A wheel step is one message; its release sends nothing.
    table.emplace("mouse_scroll_up", VRQVButtonInfo::buttonInfoWithDown("{\"type\": \"mousescroll\",\"delta\": 1}", ""));
    table.emplace("mouse_scroll_down",
                  VRQVButtonInfo::buttonInfoWithDown("{\"type\": \"mousescroll\",\"delta\": -1}", ""));
}

void addKeyboard(Table& table)
{
    // Windows virtual-key codes. "Delete" sends 8 (backspace) and "Alt" 93:
    // the remote side maps them so.
    static const std::pair<const char*, int> keys[] = {
        {"Esc", 27},   {"F1", 112},      {"F2", 113},    {"F3", 114},   {"F4", 115},    {"F5", 116},
        {"F6", 117},   {"F7", 118},      {"F8", 119},    {"F9", 120},   {"F10", 121},   {"F11", 122},
        {"F12", 123},  {"`", 192},       {"0", 48},      {"1", 49},     {"2", 50},      {"3", 51},
        {"4", 52},     {"5", 53},        {"6", 54},      {"7", 55},     {"8", 56},      {"9", 57},
        {"-", 189},    {"=", 187},       {"Delete", 8},  {"Tab", 9},    {"q", 81},      {"w", 87},
        {"e", 69},     {"r", 82},        {"t", 84},      {"y", 89},     {"u", 85},      {"i", 73},
        {"o", 79},     {"p", 80},        {"[", 219},     {"]", 221},    {"\\", 220},    {"Enter", 13},
        {"CapsLock", 20}, {"a", 65},     {"s", 83},      {"d", 68},     {"f", 70},      {"g", 71},
        {"h", 72},     {"j", 74},        {"k", 75},      {"l", 76},     {";", 186},     {"'", 222},
        {"Shift", 16}, {"z", 90},        {"x", 88},      {"c", 67},     {"v", 86},      {"b", 66},
        {"n", 78},     {"m", 77},        {",", 188},     {".", 190},    {"/", 191},     {"Ctrl", 17},
        {"Alt", 93},   {"Space", 32},    {"↑", 38},      {"←", 37},     {"↓", 40},      {"→", 39},
    };
    for (const auto& [label, code] : keys) {
        table.emplace(std::string("keyboard_") + label,
                      VRQVButtonInfo::buttonInfoWithDown(keyText("keyboard", true, code), keyText("keyboard", false, code)));
    }
    // The remote side reads Esc's press without its closing brace; it has
    // always been sent so.
    auto& esc = table.at("keyboard_Esc").downInstruction;
    esc.pop_back();
}

void addController(Table& table)
{
    // Button masks; r3 is 64 and l3 128, and the ps4 names share the face buttons' masks.
    static const std::pair<const char*, int> buttons[] = {
        {"↑", 1},        {"↓", 2},        {"←", 4},         {"→", 8},         {"start", 16},    {"select", 32},
        {"r3", 64},      {"l3", 128},     {"lb", 256},      {"rb", 512},      {"a", 4096},      {"b", 8192},
        {"x", 16384},    {"y", 32768},    {"ps4_a", 4096},  {"ps4_b", 8192},  {"ps4_x", 16384}, {"ps4_y", 32768},
    };
    for (const auto& [label, mask] : buttons) {
        table.emplace(std::string("gamepad_") + label,
                      VRQVButtonInfo::buttonInfoWithDown(keyText("gamepadkey", true, mask),
                                                         keyText("gamepadkey", false, mask), true));
    }
}

void addComposites(Table& table)
{
    const auto composite = [&](const char* name, const VRQModelClass& model, VRQVButtonInfo::ButtonClass button,
                               bool isXBox) {
        table.emplace(name, VRQVButtonInfo::buttonInfoWithDown("", "", model, button, isXBox));
    };
    const auto& dpad = VRQVDpadButtonModel::staticModelClass();
    composite("dpad_wdsa", dpad, &VRQVDPadButton::initWithModel, false);
    composite("dpad_↑→↓←", dpad, &VRQVDPadButton::initWithModel, false);
    composite("dpad_xbox", dpad, &VRQVDPadButton::initWithModel, true);
    composite("stick_left", VRQVStickButtonModel::staticModelClass(), &VRQVStickButton::initWithModel, true);
    composite("stick_right", VRQVStickButtonModel::staticModelClass(), &VRQVStickButton::initWithModel, true);
    composite("trigger_lt_max", VRQVTriggerButtonModel::staticModelClass(), &VRQVTriggerButton::initWithModel, true);
    composite("trigger_rt_max", VRQVTriggerButtonModel::staticModelClass(), &VRQVTriggerButton::initWithModel, true);
}


// Members a layout author may have misspelt: those no property reads.
void logUnreadMembers(const json& object, const VRQModelClass& modelClass, const std::string& key)
{
    std::set<std::string, std::less<>> read;
    for (const auto& property : modelClass.properties())
        read.insert(property.jsonKey.substr(0, property.jsonKey.find('.')));
    for (const auto& [member, value] : object.items()) {
        if (!read.contains(member))
            VRQ_LOG(1, "parseJsonCfg: %s ignores \"%s\"", key.c_str(), member.c_str());
    }
}

} // namespace

const std::map<std::string, VRQVButtonInfo, std::less<>>& VRQVGamePadFactory::instructionTable()
{
    static const Table table = [] {
        Table built;
        addMouse(built);
        addKeyboard(built);
        addController(built);
        addComposites(built);
        return built;
    }();
    return table;
}

const VRQVButtonInfo* VRQVGamePadFactory::buttonInfo(std::string_view name)
{
    const auto& table = instructionTable();
    const auto found = table.find(name);
    return found == table.end() ? nullptr : &found->second;
}

std::optional<std::vector<std::shared_ptr<VRQVBaseButtonModel>>> VRQVGamePadFactory::parseJsonCfg(std::string_view text)
{
    if (vrq_jsonNestingDepth(text) > kMaxNesting) {
        VRQ_LOG(2, "parseJsonCfg failed:layout nested deeper than %d levels", kMaxNesting);
        return std::nullopt;
    }
    json parsed;
    try {
        parsed = json::parse(text);
    } catch (const json::exception& exception) {
        VRQ_LOG(2, "parseJsonCfg failed:%s", exception.what());
        return std::nullopt;
    }
    std::vector<std::shared_ptr<VRQVBaseButtonModel>> models;
    if (parsed.is_object()) {
        if (auto model = parseJsonObject(parsed))
            models.push_back(std::move(model));
        return models;
    }
    if (!parsed.is_array()) {
        VRQ_LOG(2, "parseJsonCfg: a layout is an array of buttons or one button, not a %s", parsed.type_name());
        return models;
    }
    if (parsed.size() > kMaxButtons)
        VRQ_LOG(2, "parseJsonCfg: %zu buttons, only the first %zu are shown", parsed.size(), kMaxButtons);
    for (const auto& element : parsed) {
        if (models.size() == kMaxButtons)
            break;
        if (!element.is_object())
            VRQ_LOG(2, "parseJsonCfg: a %s is not a button; skipped", element.type_name());
        else if (auto model = parseJsonObject(element))
            models.push_back(std::move(model));
    }
    return models;
}

std::shared_ptr<VRQVBaseButtonModel> VRQVGamePadFactory::parseJsonObject(const json& object)
{
    const auto key = object.find("key");
    if (key == object.end() || !key->is_string())
        return nullptr;
    const VRQVButtonInfo* info = buttonInfo(key->get_ref<const std::string&>());
    if (!info)
        return nullptr;
    logUnreadMembers(object, *info->modelClass, key->get<std::string>());
    return std::static_pointer_cast<VRQVBaseButtonModel>(info->modelClass->initWithDictionary(object, nullptr));
}

std::shared_ptr<VRQVBaseButton> VRQVGamePadFactory::createVButton(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    const VRQVButtonInfo* info = model && model->key ? buttonInfo(*model->key) : nullptr;
    // A model of another class than the instruction's cannot drive its button.
    if (!info || !model->modelClass().isKindOf(*info->modelClass))
        return nullptr;
    return info->buttonClass(model);
}

std::optional<std::string> VRQVGamePadFactory::getClickInstruction(std::string_view name, bool isDown)
{
    const VRQVButtonInfo* info = name.empty() ? nullptr : buttonInfo(name);
    if (!info)
        return std::nullopt;
    return isDown ? info->downInstruction : info->upInstruction;
}

bool VRQVGamePadFactory::isGamepadModel(const VRQVBaseButtonModel& model)
{
    const VRQVButtonInfo* info = model.key ? buttonInfo(*model.key) : nullptr;
    return info && info->isXboxButton;
}
