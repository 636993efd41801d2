// Plain buttons of the on-screen gamepad: what each click mode sends for
// presses and releases, how the pressed and released looks replace each
// other, and how the touches of one event release a button.
#include "support/GamepadHarness.h"
#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/VRQVKey/button/VRQVNormalButton.h"
#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/Touch.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace {

using vrqtest::GamepadHarness;
using vrqtest::Keys;
using Messages = std::vector<Keys>;

constexpr const char* kF1Down = R"({"type": "keyboard","down": true,"key": 112})";
constexpr const char* kF1Up = R"({"type": "keyboard","down": false,"key": 112})";
constexpr vrq::Point kOnButton{200, 200};

// A button 200 points square at (100, 100) of a 1920-wide container, with
// more members after the frame.
std::string layoutOf(const char* key, const std::string& members = "")
{
    return std::string(R"([{"key":")") + key + R"(","left":"100","top":"100","width":"200","height":"200")" +
           members + "}]";
}

std::string rgba(vrq::Color color)
{
    char text[96];
    std::snprintf(text, sizeof text, "%.4f %.4f %.4f %.4f", color.red, color.green, color.blue, color.alpha);
    return text;
}

struct ModeCase {
    const char* name;
    const char* members;
    // What press, release, press and release each add: one letter per
    // message, "D" the down text alone, "U" the up text alone.
    std::array<const char*, 4> steps;
};

void PrintTo(const ModeCase& mode, std::ostream* out) { *out << mode.name; }

class VRQVNormalButtonModeTest : public ::testing::TestWithParam<ModeCase> {};

TEST_P(VRQVNormalButtonModeTest, TwoPressesAndReleasesSendTheTextsOfTheMode)
{
    GamepadHarness pad;
    pad.show(layoutOf("keyboard_F1", GetParam().members));
    for (std::size_t step = 0; step < 4; ++step) {
        if (step % 2 == 0)
            pad.down(kOnButton);
        else
            pad.up(kOnButton);
        Messages expected;
        for (const char* letter = GetParam().steps[step]; *letter; ++letter)
            expected.push_back({*letter == 'D' ? kF1Down : kF1Up});
        EXPECT_EQ(pad.take(), expected) << (step % 2 == 0 ? "press " : "release ") << step / 2 + 1;
    }
}

INSTANTIATE_TEST_SUITE_P(VRQVNormalButton, VRQVNormalButtonModeTest,
                         ::testing::Values(ModeCase{"HoldWhenNoModeIsGiven", "", {"D", "U", "D", "U"}},
                                           ModeCase{"Hold", R"(,"click_mode":"0")", {"D", "U", "D", "U"}},
                                           ModeCase{"Click", R"(,"click_mode":"1")", {"DU", "", "DU", ""}},
                                           ModeCase{"Toggle", R"(,"click_mode":"2")", {"D", "", "U", ""}},
                                           ModeCase{"UnknownModeSendsNothing", R"(,"click_mode":"3")", {"", "", "", ""}}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(VRQVNormalButtonTest, ScrollStepIsSentOnPressAndNothingOnRelease)
{
    GamepadHarness pad;
    pad.show(layoutOf("mouse_scroll_up", R"(,"click_mode":"0")"));
    pad.down(kOnButton);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "mousescroll","delta": 1})"}}));
    pad.up(kOnButton);
    EXPECT_EQ(pad.take(), Messages{}) << "the wheel step has an empty up text, which is not sent";
}

// The pressed look gives only a colour: the caption, its colour and size
// stay those of the normal look while pressed.
TEST(VRQVNormalButtonTest, PressedLookReplacesOnlyTheStepsItGives)
{
    GamepadHarness pad;
    pad.show(layoutOf("keyboard_F1", R"(,"normal_view":{"bgcolor":"#00000080","text_content":"Jump",)"
                                     R"("text_color":"#FFFFFF","text_size":"36"},"pressed_view":{"bgcolor":"#FFFFFF80"})"));
    const auto button = pad.button<VRQVNormalButton>(0);
    ASSERT_TRUE(button);
    const auto& view = button->buttonView();
    const std::string normal = rgba({0, 0, 0, 128 / 255.0});
    const std::string white = rgba({1, 1, 1, 1});
    EXPECT_EQ(rgba(view->backgroundColor()), normal);
    EXPECT_EQ(view->nameLab()->text(), "Jump");

    pad.down(kOnButton);
    EXPECT_EQ(rgba(view->backgroundColor()), rgba({1, 1, 1, 128 / 255.0}));
    EXPECT_EQ(view->nameLab()->text(), "Jump");
    EXPECT_EQ(rgba(view->nameLab()->textColor()), white);
    EXPECT_EQ(view->nameLab()->fontSize(), 36);

    pad.up(kOnButton);
    EXPECT_EQ(rgba(view->backgroundColor()), normal);
    EXPECT_EQ(view->nameLab()->text(), "Jump");
}

// A look without an image leaves the last one shown; "#FFF" is no colour
// form of the layout and comes out fully transparent.
TEST(VRQVNormalButtonTest, PressedImageStaysAfterReleaseAndAThreeDigitColourIsTransparent)
{
    GamepadHarness pad;
    pad.show(layoutOf("keyboard_F1", R"(,"normal_view":{"bgcolor":"#FF000080"},)"
                                     R"("pressed_view":{"bgcolor":"#FFF","icon_name":"a_on"})"));
    const auto button = pad.button<VRQVNormalButton>(0);
    ASSERT_TRUE(button);
    const auto& view = button->buttonView();
    const std::string red = rgba({1, 0, 0, 128 / 255.0});
    EXPECT_EQ(view->image(), nullptr);
    EXPECT_EQ(rgba(view->backgroundColor()), red);

    pad.down(kOnButton);
    const auto pressedImage = view->image();
    ASSERT_NE(pressedImage, nullptr) << "a_on is one of the kit's images";
    EXPECT_EQ(pressedImage, VRQVGamepadUtil::loadImageFromFile("a_on"));
    EXPECT_EQ(rgba(view->backgroundColor()), rgba({0, 0, 0, 0}));

    pad.up(kOnButton);
    EXPECT_EQ(view->image(), pressedImage);
    EXPECT_EQ(rgba(view->backgroundColor()), red);
}

// The button follows one touch, but every touch of an event that ends or is
// cancelled releases it: two in one event release it twice.
TEST(VRQVNormalButtonTest, EveryEndedTouchOfAnEventReleasesTheButton)
{
    GamepadHarness pad;
    pad.show(layoutOf("keyboard_F1"));
    const auto button = pad.button<VRQVNormalButton>(0);
    ASSERT_TRUE(button);

    // Through the window, a second finger on the button is not delivered to
    // it (it takes one touch at a time), so its lift releases nothing.
    pad.down({150, 150}, 1);
    pad.down({250, 250}, 2);
    EXPECT_EQ(pad.take(), (Messages{{kF1Down}}));
    pad.up({250, 250}, 2);
    EXPECT_EQ(pad.take(), Messages{});
    // Cancelling every touch is one event in which both fingers end.
    pad.down({250, 250}, 2);
    pad.window->cancelAllTouches(100);
    EXPECT_EQ(pad.take(), (Messages{{kF1Up}, {kF1Up}}));
    EXPECT_EQ(pad.window->activeTouchCount(), 0u);

    // The window lifts one finger per event; two lifted in one event are
    // handed to the button directly.
    const auto first = std::make_shared<vrq::Touch>(1, vrq::Point{150, 150}, 200);
    const auto second = std::make_shared<vrq::Touch>(2, vrq::Point{250, 250}, 200);
    button->touchesBegan({first}, vrq::Event({first}, 200));
    first->update(vrq::TouchPhase::Ended, {150, 150}, 201);
    second->update(vrq::TouchPhase::Ended, {250, 250}, 201);
    button->touchesEnded({first}, vrq::Event({first, second}, 201));
    EXPECT_EQ(pad.take(), (Messages{{kF1Down}, {kF1Up}, {kF1Up}}));
}

} // namespace
