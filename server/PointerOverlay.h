#pragma once

#include "PointerState.h"

#include "vrq/platform/engine/RtcAnswerer_p.h"

namespace vrqserver {

// Draws touch and mouse input over the game scene, so that a person watching
// sees where the client touched and pointed:
// - each finger down: a yellow dot ringed in black, of a radius of 2% of the
//   picture's height, centred on the finger;
// - the pointer, once the mouse moved: a white cross outlined in black,
//   centred on it;
// - the buttons, once any mouse input came: three boxes in the top-right
//   corner, left/middle/right as on a mouse, white while down, black while up.
// Only the pixels of these shapes are written, clipped to the picture, in the
// luma plane and the half-size chroma planes.
class PointerOverlay {
public:
    static void draw(const PointerState::Snapshot& state, vrq::rtc::VideoCanvas& canvas);
};

} // namespace vrqserver
