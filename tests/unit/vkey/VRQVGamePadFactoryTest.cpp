#include "support/LogCapture.h"
#include "vrq/VRQVKey/button/VRQVDPadButton.h"
#include "vrq/VRQVKey/button/VRQVGamePadFactory.h"
#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/VRQVNormalButton.h"
#include "vrq/VRQVKey/button/VRQVStickButton.h"
#include "vrq/VRQVKey/button/VRQVTriggerButton.h"
#include "vrq/VRQVKey/button/model/VRQVDpadButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVTriggerButtonModel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

using nlohmann::json;

namespace {

struct Expected {
    std::string name;
    std::string down;
    std::string up;
    bool isXbox;
};

std::string keyboardText(bool down, int key)
{
    char text[80];
    std::snprintf(text, sizeof text, "{\"type\": \"keyboard\",\"down\": %s,\"key\": %d}", down ? "true" : "false", key);
    return text;
}

std::string gamepadText(bool down, int key)
{
    char text[80];
    std::snprintf(text, sizeof text, "{\"type\": \"gamepadkey\",\"down\": %s,\"key\": %d}", down ? "true" : "false",
                  key);
    return text;
}

// The whole instruction table, written out here on its own.
std::vector<Expected> expectedTable()
{
    std::vector<Expected> table = {
        {"mouse_left", "{\"type\": \"mouseleft\",\"down\": true}", "{\"type\": \"mouseleft\",\"down\": false}", false},
        {"mouse_right", "{\"type\": \"mouseright\",\"down\": true}", "{\"type\": \"mouseright\",\"down\": false}", false},
        {"mouse_middle", "{\"type\": \"mousemiddle\",\"down\": true}", "{\"type\": \"mousemiddle\",\"down\": false}",
         false},
        {"mouse_scroll_up", "{\"type\": \"mousescroll\",\"delta\": 1}", "", false},
        {"mouse_scroll_down", "{\"type\": \"mousescroll\",\"delta\": -1}", "", false},
    };
    const std::pair<const char*, int> keys[] = {
        {"Esc", 27},   {"F1", 112},  {"F2", 113},  {"F3", 114},   {"F4", 115},     {"F5", 116},    {"F6", 117},
        {"F7", 118},   {"F8", 119},  {"F9", 120},  {"F10", 121},  {"F11", 122},    {"F12", 123},   {"`", 192},
        {"0", 48},     {"1", 49},    {"2", 50},    {"3", 51},     {"4", 52},       {"5", 53},      {"6", 54},
        {"7", 55},     {"8", 56},    {"9", 57},    {"-", 189},    {"=", 187},      {"Delete", 8},  {"Tab", 9},
        {"q", 81},     {"w", 87},    {"e", 69},    {"r", 82},     {"t", 84},       {"y", 89},      {"u", 85},
        {"i", 73},     {"o", 79},    {"p", 80},    {"[", 219},    {"]", 221},      {"\\", 220},    {"Enter", 13},
        {"CapsLock", 20}, {"a", 65}, {"s", 83},    {"d", 68},     {"f", 70},       {"g", 71},      {"h", 72},
        {"j", 74},     {"k", 75},    {"l", 76},    {";", 186},    {"'", 222},      {"Shift", 16},  {"z", 90},
        {"x", 88},     {"c", 67},    {"v", 86},    {"b", 66},     {"n", 78},       {"m", 77},      {",", 188},
        {".", 190},    {"/", 191},   {"Ctrl", 17}, {"Alt", 93},   {"Space", 32},   {"\u2191", 38}, {"\u2190", 37},
        {"\u2193", 40}, {"\u2192", 39},
    };
    for (const auto& [label, code] : keys)
        table.push_back({std::string("keyboard_") + label, keyboardText(true, code), keyboardText(false, code), false});
    // Esc's press is sent without its closing brace.
    table[5].down = "{\"type\": \"keyboard\",\"down\": true,\"key\": 27";
    const std::pair<const char*, int> buttons[] = {
        {"\u2191", 1}, {"\u2193", 2},  {"\u2190", 4},   {"\u2192", 8},   {"start", 16},   {"select", 32},
        {"r3", 64},    {"l3", 128},    {"lb", 256},     {"rb", 512},     {"a", 4096},     {"b", 8192},
        {"x", 16384},  {"y", 32768},   {"ps4_a", 4096}, {"ps4_b", 8192}, {"ps4_x", 16384}, {"ps4_y", 32768},
    };
    for (const auto& [label, mask] : buttons)
        table.push_back({std::string("gamepad_") + label, gamepadText(true, mask), gamepadText(false, mask), true});
    for (const auto& [name, isXbox] : {std::pair{"dpad_wdsa", false}, {"dpad_\u2191\u2192\u2193\u2190", false},
                                       {"dpad_xbox", true}, {"stick_left", true}, {"stick_right", true},
                                       {"trigger_lt_max", true}, {"trigger_rt_max", true}})
        table.push_back({name, "", "", isXbox});
    return table;
}

TEST(VRQVGamePadFactoryTest, EveryInstructionHasItsExactTexts)
{
    const auto expected = expectedTable();
    ASSERT_EQ(expected.size(), 102u);
    EXPECT_EQ(VRQVGamePadFactory::instructionTable().size(), 102u);
    for (const auto& entry : expected) {
        const VRQVButtonInfo* info = VRQVGamePadFactory::buttonInfo(entry.name);
        ASSERT_TRUE(info) << entry.name;
        EXPECT_EQ(info->downInstruction, entry.down) << entry.name;
        EXPECT_EQ(info->upInstruction, entry.up) << entry.name;
        EXPECT_EQ(info->isXboxButton, entry.isXbox) << entry.name;
    }
    EXPECT_EQ(VRQVGamePadFactory::getClickInstruction("keyboard_Esc", true), "{\"type\": \"keyboard\",\"down\": true,\"key\": 27");
    // Releasing a wheel button sends nothing.
    EXPECT_EQ(VRQVGamePadFactory::getClickInstruction("mouse_scroll_up", false), "");
    EXPECT_EQ(VRQVGamePadFactory::getClickInstruction("keyboard_F13", true), std::nullopt);
    EXPECT_EQ(VRQVGamePadFactory::getClickInstruction("", true), std::nullopt);
}

TEST(VRQVGamePadFactoryTest, ModelAndButtonClassesFollowTheInstruction)
{
    struct Case {
        const char* key;
        const VRQModelClass* model;
        VRQVButtonInfo::ButtonClass button;
    };
    const Case cases[] = {
        {"keyboard_F1", &VRQVNormalButtonModel::staticModelClass(), &VRQVNormalButton::initWithModel},
        {"gamepad_a", &VRQVNormalButtonModel::staticModelClass(), &VRQVNormalButton::initWithModel},
        {"dpad_wdsa", &VRQVDpadButtonModel::staticModelClass(), &VRQVDPadButton::initWithModel},
        {"stick_right", &VRQVStickButtonModel::staticModelClass(), &VRQVStickButton::initWithModel},
        {"trigger_lt_max", &VRQVTriggerButtonModel::staticModelClass(), &VRQVTriggerButton::initWithModel},
    };
    for (const auto& c : cases) {
        const auto model = VRQVGamePadFactory::parseJsonObject({{"key", c.key}});
        ASSERT_TRUE(model) << c.key;
        EXPECT_EQ(&model->modelClass(), c.model) << c.key;
        EXPECT_EQ(VRQVGamePadFactory::buttonInfo(c.key)->buttonClass, c.button) << c.key;
        EXPECT_TRUE(VRQVGamePadFactory::createVButton(model)) << c.key;
    }
    EXPECT_TRUE(dynamic_cast<VRQVTriggerButton*>(
        VRQVGamePadFactory::createVButton(VRQVGamePadFactory::parseJsonObject({{"key", "trigger_rt_max"}})).get()));
    // A model of another class cannot drive the instruction's button.
    auto plain = std::make_shared<VRQVBaseButtonModel>();
    plain->key = "stick_left";
    EXPECT_FALSE(VRQVGamePadFactory::createVButton(plain));
    EXPECT_TRUE(VRQVGamePadFactory::isGamepadModel(*plain));
    plain->key = "keyboard_F13";
    EXPECT_FALSE(VRQVGamePadFactory::createVButton(plain));
    EXPECT_FALSE(VRQVGamePadFactory::isGamepadModel(*plain));
}

TEST(VRQVGamePadFactoryTest, LayoutsKeepTheirOrderAndDropUnknownKeys)
{
    const auto single = VRQVGamePadFactory::parseJsonCfg(R"({"key": "gamepad_a", "left": "10"})");
    ASSERT_TRUE(single);
    ASSERT_EQ(single->size(), 1u);
    EXPECT_EQ((*single)[0]->left, "10");

    const auto layout = VRQVGamePadFactory::parseJsonCfg(
        R"([{"key": "keyboard_F1"}, {"key": "keyboard_F13"}, {"key": ""}, {"top": "1"}, {"key": "stick_left"},
            {"key": "dpad_xbox", "button_list": [{"key": "gamepad_↑"}, {"key": "nope"}, {"key": "gamepad_↓"}]}])");
    ASSERT_TRUE(layout);
    ASSERT_EQ(layout->size(), 3u);
    EXPECT_EQ((*layout)[0]->key, "keyboard_F1");
    EXPECT_EQ((*layout)[1]->key, "stick_left");
    const auto* pad = dynamic_cast<VRQVDpadButtonModel*>((*layout)[2].get());
    ASSERT_TRUE(pad);
    ASSERT_EQ(pad->buttonList->size(), 2u);
    const auto& second = std::get<std::shared_ptr<VRQSimpleJsonModel>>((*pad->buttonList)[1]);
    EXPECT_EQ(std::static_pointer_cast<VRQVBaseButtonModel>(second)->key, "gamepad_↓");
}

TEST(VRQVGamePadFactoryTest, BadLayoutTextIsLoggedAndNeverFatal)
{
    vrqtest::LogCapture log;
    EXPECT_FALSE(VRQVGamePadFactory::parseJsonCfg("[{\"key\": "));
    EXPECT_TRUE(log.contains("parseJsonCfg failed:[json.exception.parse_error"));
    EXPECT_FALSE(VRQVGamePadFactory::parseJsonCfg(std::string(100000, '[') + std::string(100000, ']')));
    EXPECT_TRUE(log.contains("parseJsonCfg failed:layout nested deeper than 32 levels"));

    EXPECT_EQ(VRQVGamePadFactory::parseJsonCfg("42")->size(), 0u);
    EXPECT_TRUE(log.contains("a layout is an array of buttons or one button, not a number"));
    EXPECT_EQ(VRQVGamePadFactory::parseJsonCfg(R"([1, "a", [], {"key": "gamepad_b"}])")->size(), 1u);
    EXPECT_TRUE(log.contains("parseJsonCfg: a string is not a button; skipped"));

    const auto typed = VRQVGamePadFactory::parseJsonCfg(R"([{"key": "gamepad_b", "left": 120, "colour": "#FFF"}])");
    ASSERT_EQ(typed->size(), 1u);
    EXPECT_FALSE((*typed)[0]->left);
    EXPECT_TRUE(log.contains("VRQVNormalButtonModel: left wants a string, not a number; left unset"));
    EXPECT_TRUE(log.contains("parseJsonCfg: gamepad_b ignores \"colour\""));

    json many = json::array();
    for (int i = 0; i < 10000; ++i)
        many.push_back({{"key", "keyboard_a"}, {"left", std::to_string(i)}});
    const auto capped = VRQVGamePadFactory::parseJsonCfg(many.dump());
    EXPECT_EQ(capped->size(), VRQVGamePadFactory::kMaxButtons);
    EXPECT_TRUE(log.contains("parseJsonCfg: 10000 buttons, only the first 256 are shown"));
}

std::string readText(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(VRQVGamePadFactoryTest, ShippedLayoutsLoadCleanlyAndNameOnlyShippedImages)
{
    const std::filesystem::path folder = VRQVGamepadUtil::resourceFolder();
    for (const char* name : {"pad.json", "kbm.json"}) {
        vrqtest::LogCapture log;
        const std::string text = readText(folder / "layouts" / name);
        const auto models = VRQVGamePadFactory::parseJsonCfg(text);
        ASSERT_TRUE(models) << name;
        EXPECT_EQ(models->size(), json::parse(text).size()) << name;
        // Warnings of the gamepad's own (a player of another test may still log).
        for (const auto& [level, line] : log.lines()) {
            const bool gamepad = line.starts_with("(VRQV") || line.starts_with("(VRQSimpleJsonModel") ||
                                 line.starts_with("(VRQModelClass");
            EXPECT_FALSE(gamepad && level >= 2) << name << ": " << line;
        }
        // Every image a layout names is one of ours.
        const std::function<void(const json&)> checkImages = [&](const json& value) {
            if (value.is_object()) {
                for (const auto& [key, member] : value.items()) {
                    if (key.find("icon_name") != std::string::npos) {
                        EXPECT_TRUE(std::filesystem::exists(folder / "vrqvkey" / (member.get<std::string>() + ".png")))
                            << name << ": " << member;
                    }
                    checkImages(member);
                }
            } else if (value.is_array()) {
                for (const auto& element : value)
                    checkImages(element);
            }
        };
        checkImages(json::parse(text));
    }
}

} // namespace
