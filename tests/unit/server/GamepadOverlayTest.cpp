#include "GamepadOverlay.h"

#include "TestFrame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

using vrqserver::GamepadOverlay;
using vrqserver::GamepadState;

namespace {

using Frame = vrqtest::TestFrame;
constexpr std::uint8_t kLuma = Frame::kLuma;
constexpr std::uint8_t kDark = 16;
constexpr std::uint8_t kIdle = 96;
constexpr std::uint8_t kLit = 235;

// On a 642x362 frame a unit is 6 pixels and the pad's box spans x [8, 176), y [258, 354).
constexpr int kUnit = 6;
constexpr int kPadLeft = 8;
constexpr int kPadTop = 258;

int px(double units)
{
    return kPadLeft + static_cast<int>(std::floor(units * kUnit));
}

int py(double units)
{
    return kPadTop + static_cast<int>(std::floor(units * kUnit));
}

GamepadState::Pad seenPad()
{
    GamepadState::Pad pad;
    pad.seen = true;
    pad.connected = true;
    return pad;
}

Frame drawn(const GamepadState::Pad& pad)
{
    Frame frame(642, 362);
    GamepadOverlay::draw(pad, frame.canvas);
    return frame;
}

} // namespace

TEST(GamepadOverlayTest, NothingIsDrawnBeforeAnyGamepadInput)
{
    Frame frame(642, 362);
    const auto luma = frame.luma;
    const auto u = frame.u;
    GamepadOverlay::draw(GamepadState::Pad{}, frame.canvas);
    EXPECT_EQ(frame.luma, luma);
    EXPECT_EQ(frame.u, u);
}

TEST(GamepadOverlayTest, AnIdlePadIsADarkBoxInTheBottomLeftCornerWithGreyControls)
{
    EXPECT_EQ(GamepadOverlay::unit(362), kUnit);
    EXPECT_EQ(GamepadOverlay::unit(100), 2);
    const Frame frame = drawn(seenPad());
    for (int row = 0; row < frame.height; ++row)
        for (int x = 0; x < frame.width; ++x)
            if (x < 8 || x >= 176 || row < 258 || row >= 354) {
                ASSERT_EQ(frame.y(x, row), kLuma) << "outside the box: " << x << "," << row;
            }
    EXPECT_EQ(frame.writtenOutside(), 0);
    EXPECT_EQ(frame.y(8, 258), kDark);
    EXPECT_EQ(frame.y(175, 353), kDark);
    EXPECT_EQ(frame.y(px(4), py(2)), kIdle) << "an empty trigger bar";
    EXPECT_EQ(frame.y(px(10), py(2)), kIdle) << "LB";
    EXPECT_EQ(frame.y(px(10), py(12)), kIdle) << "the d-pad's centre";
    EXPECT_EQ(frame.y(px(23), py(8.8)), kIdle) << "A";
    EXPECT_EQ(frame.cb(px(23) / 2, py(8.8) / 2), 128) << "grey, not green";
    EXPECT_EQ(frame.y(px(5), py(7)), kLit) << "the left stick's dot, centred";
    EXPECT_EQ(frame.y(px(5), py(4.6)), kIdle) << "the left stick's ring";
    EXPECT_LT(frame.y(px(5), py(5.5)), kIdle) << "the left stick's well";
}

TEST(GamepadOverlayTest, EachButtonLightsItsOwnShapeAndNothingElse)
{
    struct Case {
        std::uint32_t button;
        double left, top, right, bottom; // the shape's bounds, in units
    };
    const Case cases[] = {
        {GamepadState::kUp, 9.5, 10, 10.5, 11.5},
        {GamepadState::kDown, 9.5, 12.5, 10.5, 14},
        {GamepadState::kLeft, 8, 11.5, 9.5, 12.5},
        {GamepadState::kRight, 10.5, 11.5, 12, 12.5},
        {GamepadState::kStart, 15, 6, 17, 8},
        {GamepadState::kBack, 11, 6, 13, 8},
        {GamepadState::kLeftShoulder, 8, 1, 12, 3},
        {GamepadState::kRightShoulder, 16, 1, 20, 3},
        {GamepadState::kGuide, 13.2, 1.2, 14.8, 2.8},
        {GamepadState::kA, 22.1, 7.9, 23.9, 9.7},
        {GamepadState::kB, 23.9, 6.1, 25.7, 7.9},
        {GamepadState::kX, 20.3, 6.1, 22.1, 7.9},
        {GamepadState::kY, 22.1, 4.3, 23.9, 6.1},
        {GamepadState::kLeftThumb, 2.5, 4.5, 7.5, 9.5},
        {GamepadState::kRightThumb, 15.5, 9.5, 20.5, 14.5},
    };
    const Frame idle = drawn(seenPad());
    for (const Case& shape : cases) {
        auto pad = seenPad();
        pad.buttons = shape.button;
        const Frame pressed = drawn(pad);
        int changed = 0;
        for (int row = 0; row < pressed.height; ++row)
            for (int x = 0; x < pressed.width; ++x) {
                if (pressed.y(x, row) == idle.y(x, row))
                    continue;
                ++changed;
                EXPECT_GT(pressed.y(x, row), idle.y(x, row)) << shape.button << " brighter at " << x << "," << row;
                ASSERT_TRUE(x >= px(shape.left) && x <= px(shape.right) && row >= py(shape.top) && row <= py(shape.bottom))
                    << shape.button << " changed " << x << "," << row;
            }
        EXPECT_GT(changed, 20) << shape.button;
        EXPECT_EQ(pressed.writtenOutside(), 0);
    }
    auto pad = seenPad();
    pad.buttons = GamepadState::kA | GamepadState::kY;
    const Frame face = drawn(pad);
    EXPECT_LT(face.cb(px(23) / 2, py(8.8) / 2), 128) << "A is green";
    EXPECT_LT(face.cr(px(23) / 2, py(8.8) / 2), 128);
    EXPECT_LT(face.cb(px(23) / 2, py(5.2) / 2), 64) << "Y is yellow";
    EXPECT_EQ(face.cb(px(24.8) / 2, py(7) / 2), 128) << "B is up";
}

TEST(GamepadOverlayTest, TriggerBarsFillFromTheLeftInProportionToTheirValue)
{
    const int row = py(2);
    const auto litColumns = [&](const Frame& frame, double barLeft) {
        int lit = 0;
        for (int x = px(barLeft); x < px(barLeft + 6); ++x) {
            EXPECT_TRUE(frame.y(x, row) == kLit || frame.y(x, row) == kIdle) << x;
            EXPECT_TRUE(frame.y(x, row) != kLit || lit == x - px(barLeft)) << "filled from the left, at " << x;
            lit += frame.y(x, row) == kLit ? 1 : 0;
        }
        return lit;
    };
    for (const int value : {0, 1, 51, 128, 254, 255}) {
        auto pad = seenPad();
        pad.leftTrigger = value;
        pad.rightTrigger = 255 - value;
        const Frame frame = drawn(pad);
        EXPECT_NEAR(litColumns(frame, 1), 36.0 * value / 255, 0.5) << value;
        EXPECT_NEAR(litColumns(frame, 21), 36.0 * (255 - value) / 255, 0.5) << value;
    }
}

TEST(GamepadOverlayTest, AStickDotFollowsItsPositionWithYUp)
{
    auto pad = seenPad();
    pad.left = {32767, 32767};
    pad.right = {0, -32767};
    const Frame frame = drawn(pad);
    EXPECT_EQ(frame.y(px(6.2), py(5.8)), kLit) << "left: up and right, as far as the well allows";
    EXPECT_EQ(frame.y(px(7.2), py(4.8)), kDark) << "left: not past the well's edge";
    EXPECT_LT(frame.y(px(5), py(7)), kIdle) << "left: gone from the centre";
    EXPECT_EQ(frame.y(px(18), py(13.7)), kLit) << "right: down";
    EXPECT_LT(frame.y(px(18), py(12)), kIdle) << "right: gone from the centre";
    EXPECT_EQ(frame.y(px(5), py(4.6)), kIdle) << "the ring stays";

    pad.left = {-40000, 0};
    EXPECT_EQ(drawn(pad).y(px(3.3), py(7)), kLit) << "held to full tilt";
}

TEST(GamepadOverlayTest, SmallFramesAreDrawnOnWithinTheirPlanes)
{
    auto pad = seenPad();
    pad.buttons = 0xFFFF;
    pad.leftTrigger = pad.rightTrigger = 255;
    for (const auto& [width, height] : {std::pair{1, 1}, std::pair{3, 3}, std::pair{7, 5}, std::pair{33, 17}, std::pair{61, 41}}) {
        Frame frame(width, height);
        const auto luma = frame.luma;
        GamepadOverlay::draw(pad, frame.canvas);
        EXPECT_EQ(frame.writtenOutside(), 0) << width << "x" << height;
        if (width > 8) {
            EXPECT_NE(frame.luma, luma) << "the visible part of the pad, " << width << "x" << height;
        }
    }
}
