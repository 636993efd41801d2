// The direction pad: which directions an angle selects, and the up and down
// texts a finger sends as it presses, slides and lifts, including the first
// gesture after a layout, whose mask is recorded but not sent.
#include "support/GamepadHarness.h"
#include "vrq/VRQVKey/button/VRQVDPadButton.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

using vrqtest::GamepadHarness;
using vrqtest::Keys;
using Messages = std::vector<Keys>;

constexpr const char* kUpPress = R"({"type": "gamepadkey","down": true,"key": 1})";
constexpr const char* kUpRelease = R"({"type": "gamepadkey","down": false,"key": 1})";
constexpr const char* kRightPress = R"({"type": "gamepadkey","down": true,"key": 8})";
constexpr const char* kRightRelease = R"({"type": "gamepadkey","down": false,"key": 8})";
constexpr const char* kLeftPress = R"({"type": "gamepadkey","down": true,"key": 4})";
constexpr const char* kLeftRelease = R"({"type": "gamepadkey","down": false,"key": 4})";

// A 300-point pad at (100, 100) of a 1920 x 1080 container: its centre is
// (250, 250), its inner radius 40.
constexpr const char* kXboxPad =
    R"([{"key":"dpad_xbox","left":"100","top":"100","width":"300","height":"300","inner_radius":"40",)"
    R"("button_list":[{"key":"gamepad_↑"},{"key":"gamepad_→"},{"key":"gamepad_↓"},{"key":"gamepad_←"}]}])";

// Points around the centre, clockwise from straight up.
constexpr vrq::Point kTop{250, 110};
constexpr vrq::Point kUpRight{350, 150};
constexpr vrq::Point kRight{390, 250};
constexpr vrq::Point kDownLeft{150, 350};
constexpr vrq::Point kUpLeft{150, 150};
constexpr vrq::Point kInner{255, 245};

struct Sector {
    double degrees;
    std::int32_t mask;
};

void PrintTo(const Sector& sector, std::ostream* out) { *out << sector.degrees << " degrees"; }

class VRQVDPadSectorTest : public ::testing::TestWithParam<Sector> {};

// Up is 30 degrees wide, the diagonals 60, the sides 30; the last 15
// degrees before straight up select nothing.
TEST_P(VRQVDPadSectorTest, AngleClockwiseFromUpSelectsItsDirections)
{
    const double angle = GetParam().degrees * std::numbers::pi / 180;
    EXPECT_EQ(VRQVDPadButton::calcPressedButtons(std::sin(angle) * 100, -std::cos(angle) * 100), GetParam().mask);
}

INSTANTIATE_TEST_SUITE_P(VRQVDPad, VRQVDPadSectorTest,
                         ::testing::Values(Sector{0, 1}, Sector{5, 1}, Sector{25, 3}, Sector{45, 3}, Sector{65, 3},
                                           Sector{80, 2}, Sector{90, 2}, Sector{100, 2}, Sector{115, 6},
                                           Sector{135, 6}, Sector{155, 6}, Sector{170, 4}, Sector{180, 4},
                                           Sector{190, 4}, Sector{205, 12}, Sector{225, 12}, Sector{245, 12},
                                           Sector{260, 8}, Sector{270, 8}, Sector{280, 8}, Sector{295, 9},
                                           Sector{315, 9}, Sector{335, 9}, Sector{350, 0}, Sector{355, 0}),
                         [](const auto& param) { return "Deg" + std::to_string(static_cast<int>(param.param.degrees)); });

class VRQVDPadButtonTest : public ::testing::Test {
protected:
    void SetUp() override { pad.show(kXboxPad); }

    // The first gesture after the layout: a tap at the top, which sends only
    // the up text of up on release.
    void passFirstGesture()
    {
        pad.down(kTop);
        pad.up(kTop);
        ASSERT_EQ(pad.take(), (Messages{{kUpRelease}}));
    }

    GamepadHarness pad;
};

TEST_F(VRQVDPadButtonTest, FirstMaskAfterALayoutIsRecordedButNotSent)
{
    pad.down(kTop);
    EXPECT_EQ(pad.take(), Messages{});
    pad.up(kTop);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease}})) << "its release is sent although its press was not";
    pad.down(kTop);
    EXPECT_EQ(pad.take(), (Messages{{kUpPress}}));
    pad.up(kTop);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease}}));
}

// Each change is one message: the released directions' up texts, then the
// pressed ones' down texts, each group in bit order.
TEST_F(VRQVDPadButtonTest, SlidingSendsOnlyTheChangedDirections)
{
    ASSERT_NO_FATAL_FAILURE(passFirstGesture());
    pad.down(kTop);
    EXPECT_EQ(pad.take(), (Messages{{kUpPress}}));
    pad.move({260, 105});
    EXPECT_EQ(pad.take(), Messages{}) << "the same sector";
    pad.move(kUpRight);
    EXPECT_EQ(pad.take(), (Messages{{kRightPress}}));
    pad.move(kRight);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease}}));
    pad.up(kRight);
    EXPECT_EQ(pad.take(), (Messages{{kRightRelease}}));

    pad.down(kRight);
    EXPECT_EQ(pad.take(), (Messages{{kRightPress}}));
    pad.move(kUpLeft);
    EXPECT_EQ(pad.take(), (Messages{{kRightRelease, kUpPress, kLeftPress}}));
    pad.up(kUpLeft);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease, kLeftRelease}}));
}

TEST_F(VRQVDPadButtonTest, InsideTheInnerRadiusNothingIsSelected)
{
    ASSERT_NO_FATAL_FAILURE(passFirstGesture());
    pad.down(kInner);
    EXPECT_EQ(pad.take(), Messages{});
    pad.move(kUpRight);
    EXPECT_EQ(pad.take(), (Messages{{kUpPress, kRightPress}}));
    pad.move(kInner);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease, kRightRelease}}));
    pad.up(kInner);
    EXPECT_EQ(pad.take(), Messages{}) << "nothing is held any more";
}

TEST_F(VRQVDPadButtonTest, ALayoutAtANewWidthMakesTheNextMaskSilentAgain)
{
    ASSERT_NO_FATAL_FAILURE(passFirstGesture());
    pad.down(kTop);
    pad.up(kTop);
    EXPECT_EQ(pad.take(), (Messages{{kUpPress}, {kUpRelease}}));

    pad.pad->setFrame({{0, 0}, {1280, 720}});
    pad.window->layoutIfNeeded();
    const auto dpad = pad.button<VRQVDPadButton>(0);
    ASSERT_TRUE(dpad);
    const vrq::Rect placed = dpad->frame();
    ASSERT_EQ(vrq::stringFromRect(placed), "{{66, 66}, {200, 200}}") << "laid out at two thirds";
    const vrq::Point top{placed.origin.x + placed.size.width / 2, placed.origin.y + 5};
    pad.down(top);
    EXPECT_EQ(pad.take(), Messages{});
    pad.up(top);
    EXPECT_EQ(pad.take(), (Messages{{kUpRelease}}));
}

TEST(VRQVDPadWasdTest, WasdPadSendsKeyboardTexts)
{
    GamepadHarness pad;
    pad.show(R"([{"key":"dpad_wdsa","left":"100","top":"100","width":"300","height":"300","inner_radius":"40",)"
             R"("button_list":[{"key":"keyboard_w"},{"key":"keyboard_d"},{"key":"keyboard_s"},{"key":"keyboard_a"}]}])");
    pad.down(kTop);
    pad.up(kTop);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "keyboard","down": false,"key": 87})"}}));
    pad.down(kRight);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "keyboard","down": true,"key": 68})"}}));
    pad.move(kDownLeft);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "keyboard","down": false,"key": 68})",
                                     R"({"type": "keyboard","down": true,"key": 83})",
                                     R"({"type": "keyboard","down": true,"key": 65})"}}));
    pad.up(kDownLeft);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type": "keyboard","down": false,"key": 83})",
                                     R"({"type": "keyboard","down": false,"key": 65})"}}));
}

} // namespace
