// The gamepad container: the buttons it makes from layout text, where it
// places them, which touches it takes, when it lays them out again, and
// what reaches the game controller.
#include "support/GamepadHarness.h"
#include "vrq/VRQVKey/button/VRQVDPadButton.h"
#include "vrq/VRQVKey/button/VRQVNormalButton.h"
#include "vrq/VRQVKey/button/VRQVStickButton.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

#include <gtest/gtest.h>

namespace {

using vrqtest::GamepadHarness;
using vrqtest::Keys;
using Messages = std::vector<Keys>;

TEST(VRQVKeyGamepadTest, ShowMakesTheButtonsInLayoutOrderAndReplacesThemAll)
{
    GamepadHarness pad;
    pad.show(R"([{"key":"keyboard_w","left":"0","top":"0","width":"100","height":"100"},{"key":"keyboard_F13"},)"
             R"({"key":"dpad_xbox","left":"200","top":"0","width":"300","height":"300"},)"
             R"({"key":"stick_left","left":"600","top":"0","width":"300","height":"300"},)"
             R"({"key":"mouse_left","left":"1000","top":"0","width":"100","height":"100"}])");
    const auto first = pad.pad->buttonList();
    std::vector<std::string> keys;
    for (const auto& button : first)
        keys.push_back(button->model() && button->model()->key ? *button->model()->key : "?");
    EXPECT_EQ(keys, (std::vector<std::string>{"keyboard_w", "dpad_xbox", "stick_left", "mouse_left"}));
    ASSERT_EQ(first.size(), 4u);
    EXPECT_TRUE(std::dynamic_pointer_cast<VRQVNormalButton>(first[0]));
    EXPECT_TRUE(std::dynamic_pointer_cast<VRQVDPadButton>(first[1]));
    EXPECT_TRUE(std::dynamic_pointer_cast<VRQVStickButton>(first[2]));
    EXPECT_TRUE(std::dynamic_pointer_cast<VRQVNormalButton>(first[3]));
    EXPECT_EQ(pad.pad->subviews(), std::vector<std::shared_ptr<vrq::View>>(first.begin(), first.end()))
        << "later buttons lie on top";

    pad.show(R"([{"key":"gamepad_a","left":"0","top":"0","width":"100","height":"100"}])");
    for (const auto& old : first)
        EXPECT_EQ(old->superview(), nullptr);
    ASSERT_EQ(pad.pad->buttonList().size(), 1u);
    EXPECT_EQ(pad.pad->subviews(), (std::vector<std::shared_ptr<vrq::View>>{pad.pad->buttonList()[0]}));

    pad.show(R"([{"key":"gamepad_b",)");
    EXPECT_TRUE(pad.pad->buttonList().empty());
    EXPECT_TRUE(pad.pad->subviews().empty());
    EXPECT_TRUE(pad.pad->modelList().empty());
}

struct NeedCase {
    const char* name;
    const char* layout;
    bool needsController;
};

void PrintTo(const NeedCase& need, std::ostream* out) { *out << need.name; }

class VRQVKeyGamepadNeedTest : public ::testing::TestWithParam<NeedCase> {};

TEST_P(VRQVKeyGamepadNeedTest, ControllerIsNeededForAnyControllerControl)
{
    GamepadHarness pad;
    pad.show(GetParam().layout);
    EXPECT_EQ(pad.pad->needConnected(), GetParam().needsController);
    EXPECT_EQ(pad.pad->hasGamepadButton(), GetParam().needsController);
}

INSTANTIATE_TEST_SUITE_P(
    VRQVKeyGamepad, VRQVKeyGamepadNeedTest,
    ::testing::Values(NeedCase{"GamepadButtonAmongKeys", R"([{"key":"keyboard_w"},{"key":"gamepad_a"}])", true},
                      NeedCase{"XboxPad", R"([{"key":"dpad_xbox"}])", true},
                      NeedCase{"Stick", R"([{"key":"stick_right"}])", true},
                      NeedCase{"Trigger", R"([{"key":"trigger_lt_max"}])", true},
                      NeedCase{"KeyboardAndMouse",
                               R"([{"key":"keyboard_w"},{"key":"mouse_left"},{"key":"mouse_scroll_up"}])", false},
                      NeedCase{"WasdPad", R"([{"key":"dpad_wdsa"}])", false},
                      NeedCase{"ArrowKeyPad", R"([{"key":"dpad_↑→↓←"}])", false},
                      NeedCase{"Empty", "[]", false}),
    [](const auto& param) { return std::string(param.param.name); });

struct Placement {
    const char* name;
    const char* members;
    const char* frame;
};

void PrintTo(const Placement& placement, std::ostream* out) { *out << placement.name; }

class VRQVKeyGamepadFrameTest : public ::testing::TestWithParam<Placement> {};

// On a 1280 x 720 container one reference pixel is two thirds of a point,
// truncated; "%" lengths are the number times the full length.
TEST_P(VRQVKeyGamepadFrameTest, LengthsAreScaledToTheContainer)
{
    GamepadHarness pad({1280, 720});
    pad.show(std::string(R"([{"key":"keyboard_w",)") + GetParam().members + "}]");
    ASSERT_EQ(pad.pad->buttonList().size(), 1u);
    EXPECT_EQ(vrq::stringFromRect(pad.pad->buttonList()[0]->frame()), GetParam().frame);
}

INSTANTIATE_TEST_SUITE_P(
    VRQVKeyGamepad, VRQVKeyGamepadFrameTest,
    ::testing::Values(Placement{"Pixels", R"("left":"960","top":"90","width":"100","height":"50")",
                                "{{640, 60}, {66, 33}}"},
                      Placement{"FromTheFarEdges", R"("left":"-100","top":"-90","width":"100","height":"100")",
                                "{{1214, 660}, {66, 66}}"},
                      Placement{"Fractions", R"("left":"0.25%","top":"0.5%","width":"0.05%","height":"50%")",
                                "{{320, 360}, {64, 64000}}"}),
    [](const auto& param) { return std::string(param.param.name); });

// Two overlapping F-keys over a view that lies under the whole container.
TEST(VRQVKeyGamepadTest, TouchesBetweenButtonsFallThroughAndTheTopmostButtonTakesThem)
{
    GamepadHarness pad;
    const auto beneath = std::make_shared<vrq::View>(vrq::Rect{{0, 0}, {1920, 1080}});
    pad.window->insertSubview(beneath, 0);
    pad.show(R"([{"key":"keyboard_F1","left":"100","top":"100","width":"200","height":"200"},)"
             R"({"key":"keyboard_F2","left":"200","top":"200","width":"200","height":"200"}])");
    const auto& buttons = pad.pad->buttonList();
    ASSERT_EQ(buttons.size(), 2u);
    EXPECT_EQ(pad.pad->hitTest({1000, 900}), nullptr);
    EXPECT_EQ(pad.window->hitTest({1000, 900}), beneath.get());
    EXPECT_EQ(pad.window->hitTest({150, 150}), buttons[0].get());
    EXPECT_EQ(pad.window->hitTest({250, 250}), buttons[1].get());
    pad.down({250, 250});
    pad.up({250, 250});
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "keyboard","down": true,"key": 113})"},
                                     {R"({"type": "keyboard","down": false,"key": 113})"}}));

    pad.pad->setAlpha(0.01);
    EXPECT_EQ(pad.window->hitTest({250, 250}), beneath.get()) << "alpha 0.01";
    pad.pad->setAlpha(0.02);
    EXPECT_EQ(pad.window->hitTest({250, 250}), buttons[1].get()) << "alpha 0.02";
    pad.pad->setHidden(true);
    EXPECT_EQ(pad.window->hitTest({250, 250}), beneath.get()) << "hidden";
    pad.down({250, 250});
    pad.up({250, 250});
    EXPECT_EQ(pad.take(), Messages{});
}

// A button moved by hand shows whether a layout ran since.
TEST(VRQVKeyGamepadTest, ButtonsAreLaidOutAgainOnlyWhenTheWidthChanged)
{
    GamepadHarness pad;
    pad.show(R"([{"key":"keyboard_w","left":"100","top":"100","width":"200","height":"200"}])");
    const auto button = pad.pad->buttonList().at(0);
    EXPECT_EQ(vrq::stringFromRect(button->frame()), "{{100, 100}, {200, 200}}");
    const vrq::Rect moved{{1, 2}, {3, 4}};

    button->setFrame(moved);
    pad.pad->removeFromSuperview();
    pad.window->addSubview(pad.pad);
    pad.window->layoutIfNeeded();
    EXPECT_EQ(vrq::stringFromRect(button->frame()), "{{1, 2}, {3, 4}}") << "added again at the same width";

    pad.pad->setFrame({{0, 0}, {1280, 720}});
    pad.window->layoutIfNeeded();
    EXPECT_EQ(vrq::stringFromRect(button->frame()), "{{66, 66}, {133, 133}}") << "a new width";

    button->setFrame(moved);
    pad.pad->removeFromSuperview();
    pad.pad->setFrame({{0, 0}, {1920, 1080}});
    EXPECT_EQ(vrq::stringFromRect(button->frame()), "{{1, 2}, {3, 4}}") << "not laid out outside a superview";
    pad.window->addSubview(pad.pad);
    EXPECT_EQ(vrq::stringFromRect(button->frame()), "{{100, 100}, {200, 200}}") << "added at a new width";
}

TEST(VRQVKeyGamepadTest, AButtonMessageReachesTheControllerUnchangedOnKm)
{
    GamepadHarness pad;
    pad.show(R"([{"key":"keyboard_F1","left":"100","top":"100","width":"200","height":"200"}])");
    pad.down({200, 200});
    const std::string sent = R"(send:km:{"keys":["{\"type\": \"keyboard\",\"down\": true,\"key\": 112}"],)"
                             R"("type":"key_seq"})";
    EXPECT_EQ(pad.sentCalls(), std::vector<std::string>{sent});
}

} // namespace
