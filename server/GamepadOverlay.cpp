#include "GamepadOverlay.h"

#include "CanvasPlane.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vrqserver {

namespace {

using Pad = GamepadState::Pad;
constexpr CanvasColour kBackground = {16, 128, 128};
constexpr CanvasColour kWell = {40, 128, 128};
constexpr CanvasColour kIdle = {96, 128, 128};
constexpr CanvasColour kLit = {235, 128, 128};
constexpr CanvasColour kGreen = {167, 90, 80};
constexpr CanvasColour kRed = {126, 104, 198};
constexpr CanvasColour kBlue = {134, 184, 98};
constexpr CanvasColour kYellow = {210, 16, 146};

// In units (see the header).
constexpr double kStickRadius = 2.5;
constexpr double kStickRing = 0.3;
constexpr double kDotRadius = 0.8;
constexpr double kStickTravel = 1.7;
constexpr double kFaceRadius = 0.9;
constexpr double kFaceOffset = 1.8;
constexpr double kTriggerWidth = 6;
constexpr double kAxisFull = 32767;
constexpr double kTriggerFull = 255;

// The samples of the plane whose centres lie in [from, to), in picture
// coordinates along an axis of size samples; held to the plane.
SampleSpan centredIn(const CanvasPlane& plane, double from, double to, int size)
{
    const double scale = 1 << plane.shift;
    const auto index = [&](double at) {
        return static_cast<int>(std::clamp(std::ceil(at / scale - 0.5), 0.0, static_cast<double>(size)));
    };
    return {index(from), index(to)};
}

// Paints shapes given in units from the pad's top-left corner.
struct Sketch {
    const vrq::rtc::VideoCanvas& canvas;
    double left; // the pad's corner, in pixels
    double top;
    double unit; // pixels

    void box(double x0, double y0, double x1, double y1, const CanvasColour& colour) const
    {
        for (std::size_t index = 0; index < colour.size(); ++index) {
            const CanvasPlane plane = CanvasPlane::of(canvas, index);
            plane.fill(centredIn(plane, left + x0 * unit, left + x1 * unit, plane.width),
                       centredIn(plane, top + y0 * unit, top + y1 * unit, plane.height), colour[index]);
        }
    }

    void disc(double centreX, double centreY, double radius, const CanvasColour& colour) const
    {
        const double x0 = left + centreX * unit;
        const double y0 = top + centreY * unit;
        const double r = radius * unit;
        for (std::size_t index = 0; index < colour.size(); ++index) {
            const CanvasPlane plane = CanvasPlane::of(canvas, index);
            plane.fillDisc(centredIn(plane, x0 - r, x0 + r, plane.width),
                           centredIn(plane, y0 - r, y0 + r, plane.height), x0, y0, r, colour[index]);
        }
    }
};

const CanvasColour& shown(const Pad& pad, std::uint32_t button, const CanvasColour& lit = kLit)
{
    return (pad.buttons & button) != 0 ? lit : kIdle;
}

void drawTrigger(const Sketch& sketch, double left, int value)
{
    sketch.box(left, 1, left + kTriggerWidth, 3, kIdle);
    sketch.box(left, 1, left + kTriggerWidth * std::clamp(value / kTriggerFull, 0.0, 1.0), 3, kLit);
}

void drawSmallButtons(const Sketch& sketch, const Pad& pad)
{
    sketch.box(8, 1, 12, 3, shown(pad, GamepadState::kLeftShoulder));
    sketch.box(16, 1, 20, 3, shown(pad, GamepadState::kRightShoulder));
    sketch.disc(14, 2, 0.8, shown(pad, GamepadState::kGuide));
    sketch.box(11, 6, 13, 8, shown(pad, GamepadState::kBack));
    sketch.box(15, 6, 17, 8, shown(pad, GamepadState::kStart));
}

void drawStick(const Sketch& sketch, double centreX, double centreY, const GamepadState::Stick& stick,
               const CanvasColour& ring)
{
    const double ringWidth = std::max(kStickRing, 1.0 / sketch.unit);
    sketch.disc(centreX, centreY, kStickRadius, ring);
    sketch.disc(centreX, centreY, kStickRadius - ringWidth, kWell);
    // Held to the unit circle, so that the dot stays in its well.
    const double x = stick.x / kAxisFull;
    const double y = stick.y / kAxisFull;
    const double scale = kStickTravel / std::max(1.0, std::hypot(x, y));
    sketch.disc(centreX + scale * x, centreY - scale * y, kDotRadius, kLit);
}

void drawDpad(const Sketch& sketch, const Pad& pad)
{
    sketch.box(9.5, 11.5, 10.5, 12.5, kIdle);
    sketch.box(9.5, 10, 10.5, 11.5, shown(pad, GamepadState::kUp));
    sketch.box(9.5, 12.5, 10.5, 14, shown(pad, GamepadState::kDown));
    sketch.box(8, 11.5, 9.5, 12.5, shown(pad, GamepadState::kLeft));
    sketch.box(10.5, 11.5, 12, 12.5, shown(pad, GamepadState::kRight));
}

void drawFaceButtons(const Sketch& sketch, const Pad& pad)
{
    constexpr double kCentreX = 23;
    constexpr double kCentreY = 7;
    sketch.disc(kCentreX, kCentreY + kFaceOffset, kFaceRadius, shown(pad, GamepadState::kA, kGreen));
    sketch.disc(kCentreX + kFaceOffset, kCentreY, kFaceRadius, shown(pad, GamepadState::kB, kRed));
    sketch.disc(kCentreX - kFaceOffset, kCentreY, kFaceRadius, shown(pad, GamepadState::kX, kBlue));
    sketch.disc(kCentreX, kCentreY - kFaceOffset, kFaceRadius, shown(pad, GamepadState::kY, kYellow));
}

} // namespace

int GamepadOverlay::unit(int pictureHeight)
{
    return std::max(2, pictureHeight / 60);
}

void GamepadOverlay::draw(const GamepadState::Pad& pad, vrq::rtc::VideoCanvas& canvas)
{
    if (!pad.seen || !paintable(canvas))
        return;
    const int size = unit(canvas.height);
    const Sketch sketch{canvas, static_cast<double>(kMargin),
                        static_cast<double>(canvas.height - kMargin - kHeightUnits * size), static_cast<double>(size)};
    sketch.box(0, 0, kWidthUnits, kHeightUnits, kBackground);
    drawTrigger(sketch, 1, pad.leftTrigger);
    drawTrigger(sketch, 21, pad.rightTrigger);
    drawSmallButtons(sketch, pad);
    drawStick(sketch, 5, 7, pad.left, shown(pad, GamepadState::kLeftThumb));
    drawStick(sketch, 18, 12, pad.right, shown(pad, GamepadState::kRightThumb));
    drawDpad(sketch, pad);
    drawFaceButtons(sketch, pad);
}

} // namespace vrqserver
