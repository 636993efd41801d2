#pragma once

#include "GamepadState.h"

#include "vrq/platform/engine/RtcAnswerer_p.h"

namespace vrqserver {

// Draws the virtual controller over the game scene, once any gamepad input
// came, so that a person watching sees the pad the client presses.
//
// The pad is a dark box of 28 x 16 units, with its bottom-left corner kMargin
// pixels from the picture's; a unit is max(2, height / 60) pixels. In units,
// from the box's top-left corner:
// - the triggers: bars x [1, 7) (left) and [21, 27), y [1, 3), grey, filled in
//   white from the left in proportion to the value (0..255);
// - the shoulders: boxes x [8, 12) (LB) and [16, 20) (RB), y [1, 3);
// - guide: a disc of radius 0.8 at (14, 2);
// - back and start: boxes x [11, 13) and [15, 17), y [6, 8);
// - the sticks: wells of radius 2.5 at (5, 7) (left) and (18, 12), ringed in
//   white while the stick is pressed in (else grey), with a white dot of
//   radius 0.8 that is 1.7 from the centre at full tilt (y up; a position
//   past the unit circle is drawn on it);
// - the d-pad: arms 1 wide around a centre square x [9.5, 10.5),
//   y [11.5, 12.5): up to y 10, down to 14, left to x 8, right to 12;
// - A, B, X, Y: discs of radius 0.9, 1.8 below, right of, left of and above
//   (23, 7), green, red, blue and yellow while down.
// Shapes are white (or their colour) while held, grey otherwise. Only the
// pixels of the box are written, clipped to the picture, in the luma plane
// and the half-size chroma planes; a chroma sample is painted when its
// centre lies within a shape.
class GamepadOverlay {
public:
    static constexpr int kMargin = 8;
    static constexpr int kWidthUnits = 28;
    static constexpr int kHeightUnits = 16;

    static int unit(int pictureHeight);
    static void draw(const GamepadState::Pad& pad, vrq::rtc::VideoCanvas& canvas);
};

} // namespace vrqserver
