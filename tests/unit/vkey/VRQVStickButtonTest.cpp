// The analogue stick: the axis pair a drag sends, the decaying series a lift
// sends, and where the knob is drawn.
#include "support/GamepadHarness.h"
#include "vrq/VRQVKey/button/VRQVStickButton.h"

#include <gtest/gtest.h>

namespace {

using vrqtest::GamepadHarness;
using vrqtest::Keys;
using Messages = std::vector<Keys>;

// A 400-point stick at (100, 100) of a 1920 x 1080 container: its centre is
// (300, 300), its rim 200 points out, its knob 80 points in radius.
std::string stickLayout(const char* key)
{
    return std::string(R"([{"key":")") + key +
           R"(","left":"100","top":"100","width":"400","height":"400","inner_radius":"80"}])";
}

struct Drag {
    const char* name;
    vrq::Point to;
    const char* text;
};

void PrintTo(const Drag& drag, std::ostream* out) { *out << drag.name; }

class VRQVStickDragTest : public ::testing::TestWithParam<Drag> {};

TEST_P(VRQVStickDragTest, MoveSendsTheAxisPairOfTheOffset)
{
    GamepadHarness pad;
    pad.show(stickLayout("stick_left"));
    pad.down({320, 310});
    EXPECT_EQ(pad.take(), Messages{}) << "a press alone sends nothing";
    pad.move(GetParam().to);
    EXPECT_EQ(pad.take(), (Messages{{GetParam().text}}));
}

INSTANTIATE_TEST_SUITE_P(
    VRQVStick, VRQVStickDragTest,
    ::testing::Values(Drag{"RightPastTheRim", {600, 300}, R"({"type":"axisleft","x":32767,"y":0})"},
                      Drag{"UpPastTheRim", {300, 0}, R"({"type":"axisleft","x":0,"y":32767})"},
                      Drag{"DownPastTheRim", {300, 650}, R"({"type":"axisleft","x":0,"y":-32767})"},
                      // 32767 x sin(315 degrees) is -23169.77: truncated, not rounded.
                      Drag{"UpLeftPastTheRim", {100, 100}, R"({"type":"axisleft","x":-23169,"y":23169})"},
                      Drag{"HalfwayRight", {400, 300}, R"({"type":"axisleft","x":16383,"y":0})"},
                      Drag{"AtTheCentre", {300, 300}, R"({"type":"axisleft","x":0,"y":0})"}),
    [](const auto& param) { return std::string(param.param.name); });

// Each step of the series takes a third of the last pair off, and values
// under 600 snap to 0; all steps go in one message.
TEST(VRQVStickButtonTest, LiftSendsOneSeriesDecayingFromTheLastPair)
{
    GamepadHarness pad;
    pad.show(stickLayout("stick_left"));
    const auto stick = pad.button<VRQVStickButton>(0);
    ASSERT_TRUE(stick);
    const Messages fromFullRight{{R"({"type":"axisleft","x":21845,"y":0})", R"({"type":"axisleft","x":10923,"y":0})",
                                  R"({"type":"axisleft","x":0,"y":0})"}};
    pad.down({300, 300});
    pad.move({600, 300});
    EXPECT_EQ(pad.take(), (Messages{{R"({"type":"axisleft","x":32767,"y":0})"}}));
    pad.up({600, 300});
    EXPECT_EQ(pad.take(), fromFullRight);

    // The last pair is kept: a tap without a move repeats the series.
    pad.down({300, 300});
    pad.up({300, 300});
    EXPECT_EQ(pad.take(), fromFullRight);

    stick->sendInstruction(300, 900);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type":"axisleft","x":300,"y":900})"}}));
    stick->onPressUp(300, 300);
    EXPECT_EQ(pad.take(), (Messages{{R"({"type":"axisleft","x":0,"y":600})", R"({"type":"axisleft","x":0,"y":0})"}}));
}

TEST(VRQVStickButtonTest, RightStickSendsAxisRightAndItsKnobReturnsToTheMiddle)
{
    GamepadHarness pad;
    pad.show(stickLayout("stick_right"));
    const auto stick = pad.button<VRQVStickButton>(0);
    ASSERT_TRUE(stick);
    const auto& knob = stick->buttonView()->innerView();
    const std::string middle = "{{120, 120}, {160, 160}}"; // in the stick's own coordinates
    EXPECT_EQ(vrq::stringFromRect(knob->frame()), middle);

    pad.down({300, 300});
    pad.move({600, 300});
    EXPECT_EQ(pad.take(), (Messages{{R"({"type":"axisright","x":32767,"y":0})"}}));
    EXPECT_EQ(vrq::stringFromRect(knob->frame()), "{{320, 120}, {160, 160}}") << "held at the rim";

    pad.up({600, 300});
    EXPECT_EQ(pad.take(), (Messages{{R"({"type":"axisright","x":21845,"y":0})", R"({"type":"axisright","x":10923,"y":0})",
                                     R"({"type":"axisright","x":0,"y":0})"}}));
    EXPECT_EQ(vrq::stringFromRect(knob->frame()), middle);
}

} // namespace
