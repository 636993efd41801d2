#include "PointerOverlay.h"

#include "TestFrame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

using vrqserver::PointerOverlay;
using vrqserver::PointerState;

namespace {

using Frame = vrqtest::TestFrame;
constexpr std::uint8_t kLuma = Frame::kLuma;
constexpr std::uint8_t kU = Frame::kU;
constexpr std::uint8_t kV = Frame::kV;

PointerState::Snapshot fingerAt(double x, double y)
{
    PointerState::Snapshot snapshot;
    snapshot.fingers.push_back({4, {x, y}});
    return snapshot;
}

} // namespace

TEST(PointerOverlayTest, NoInputDrawsNothing)
{
    Frame frame(642, 362);
    const auto luma = frame.luma;
    const auto u = frame.u;
    PointerOverlay::draw(PointerState::Snapshot{}, frame.canvas);
    EXPECT_EQ(frame.luma, luma);
    EXPECT_EQ(frame.u, u);
}

TEST(PointerOverlayTest, AFingerIsABrightDotCentredOnItsPositionOnAnOddSizedFrame)
{
    Frame frame(642, 362);
    PointerOverlay::draw(fingerAt(0.25, 0.5), frame.canvas);
    const double centreX = 0.25 * 642; // 160.5
    const double centreY = 0.5 * 362;  // 181
    const double radius = 0.02 * 362;

    int bright = 0;
    for (int row = 0; row < frame.height; ++row)
        for (int x = 0; x < frame.width; ++x) {
            const double distance = std::hypot(x + 0.5 - centreX, row + 0.5 - centreY);
            if (frame.y(x, row) > kLuma) {
                ++bright;
                EXPECT_LE(distance, radius + 1e-9) << x << "," << row;
            } else if (distance > radius + 3) {
                ASSERT_EQ(frame.y(x, row), kLuma) << "far from the dot: " << x << "," << row;
            }
        }
    const double area = 3.14159 * radius * radius;
    EXPECT_GT(bright, area * 0.85);
    EXPECT_LT(bright, area * 1.15);
    EXPECT_GT(frame.y(160, 181), 200);
    EXPECT_GT(frame.y(160, 175), 200);
    EXPECT_LT(frame.y(160 + 8, 181), kLuma) << "a dark ring just outside the dot";

    // Chroma: tinted at the dot, untouched far from it.
    EXPECT_NE(frame.cb(80, 90), kU);
    EXPECT_NE(frame.cr(80, 90), kV);
    EXPECT_EQ(frame.cb(200, 40), kU);
    EXPECT_EQ(frame.cr(200, 40), kV);
    EXPECT_EQ(frame.cb(80, 100), kU) << "below the dot";
    EXPECT_EQ(frame.writtenOutside(), 0);
}

TEST(PointerOverlayTest, AFingerOnTheEdgeIsClippedToThePicture)
{
    for (const auto& [x, y] : {std::pair{1.0, 1.0}, std::pair{1.0, 0.5}, std::pair{0.0, 0.0}, std::pair{0.5, 1.0}}) {
        Frame frame(642, 362);
        PointerOverlay::draw(fingerAt(x, y), frame.canvas);
        EXPECT_EQ(frame.writtenOutside(), 0) << x << "," << y;
        const int column = std::min(641, static_cast<int>(x * 642));
        const int row = std::min(361, static_cast<int>(y * 362));
        EXPECT_GT(frame.y(column, row), 200) << "the visible part of the dot, at " << x << "," << y;
        EXPECT_EQ(frame.y(320, 100), kLuma);
    }
}

TEST(PointerOverlayTest, ThePointerIsACrossOutlinedInDark)
{
    Frame frame(642, 362);
    PointerState::Snapshot snapshot;
    snapshot.pointer = PointerState::Point{0.5, 0.5}; // pixel (321, 181)
    PointerOverlay::draw(snapshot, frame.canvas);
    const int arm = 362 / 40;
    EXPECT_GT(frame.y(321, 181), 200);
    EXPECT_GT(frame.y(321 + arm, 181), 200);
    EXPECT_GT(frame.y(321, 181 - arm), 200);
    EXPECT_LT(frame.y(321 + arm + 1, 181), kLuma);
    EXPECT_LT(frame.y(321, 181 + 1 + arm), kLuma);
    EXPECT_LT(frame.y(325, 182), kLuma);
    EXPECT_EQ(frame.y(321 + arm + 2, 181), kLuma) << "past the outline";
    EXPECT_EQ(frame.y(325, 185), kLuma) << "between the arms";
    EXPECT_EQ(frame.cb(160, 90), 128) << "a grey cross";
    EXPECT_EQ(frame.cb(100, 90), kU);
    EXPECT_EQ(frame.writtenOutside(), 0);
    EXPECT_EQ(frame.y(598, 14), kLuma) << "no buttons before any mouse input";
}

TEST(PointerOverlayTest, ButtonsShowInTheTopRightCornerLeftMiddleRightFilledWhileDown)
{
    Frame frame(642, 362);
    PointerState::Snapshot snapshot;
    snapshot.mouseSeen = true;
    snapshot.buttons.left = true;
    snapshot.buttons.right = true;
    PointerOverlay::draw(snapshot, frame.canvas);
    // Boxes of 12 pixels, 3 apart, ending 8 pixels from the right edge: from x 592, 607 and 622; y 8 to 20.
    EXPECT_GT(frame.y(598, 14), 200) << "left, down";
    EXPECT_LT(frame.y(613, 14), 200) << "middle, up";
    EXPECT_GT(frame.y(613, 14), kLuma) << "middle, up: grey";
    EXPECT_GT(frame.y(628, 14), 200) << "right, down";
    EXPECT_LT(frame.y(592, 8), kLuma) << "a dark frame";
    EXPECT_EQ(frame.y(605, 14), kLuma) << "between the boxes";
    EXPECT_EQ(frame.y(598, 22), kLuma) << "below";
    EXPECT_EQ(frame.y(640, 14), kLuma) << "the margin";
    EXPECT_EQ(frame.writtenOutside(), 0);
}

TEST(PointerOverlayTest, TinyFramesAreDrawnOnWithinTheirPlanes)
{
    PointerState::Snapshot snapshot = fingerAt(1.0, 1.0);
    snapshot.fingers.push_back({0, {0.0, 0.0}});
    snapshot.pointer = PointerState::Point{1.0, 0.0};
    snapshot.mouseSeen = true;
    snapshot.buttons.middle = true;
    for (const auto& [width, height] : {std::pair{1, 1}, std::pair{3, 3}, std::pair{7, 5}, std::pair{33, 17}}) {
        Frame frame(width, height);
        PointerOverlay::draw(snapshot, frame.canvas);
        EXPECT_EQ(frame.writtenOutside(), 0) << width << "x" << height;
        EXPECT_NE(frame.y(0, 0), kLuma) << width << "x" << height;
    }
}
