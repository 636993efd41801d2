#include "GamepadOverlay.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

namespace vrqserver {

namespace {

using Colour = std::array<std::uint8_t, 3>; // Y, U, V
using Pad = GamepadState::Pad;
constexpr Colour kBackground = {16, 128, 128};
constexpr Colour kWell = {40, 128, 128};
constexpr Colour kIdle = {96, 128, 128};
constexpr Colour kLit = {235, 128, 128};
constexpr Colour kGreen = {167, 90, 80};
constexpr Colour kRed = {126, 104, 198};
constexpr Colour kBlue = {134, 184, 98};
constexpr Colour kYellow = {210, 16, 146};

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

// One plane of the canvas; shift is 0 for luma, 1 for the half-size chroma planes.
struct Plane {
    std::uint8_t* data;
    int stride;
    int width;
    int height;
    int shift;

    std::uint8_t* row(int y) const { return data + static_cast<std::ptrdiff_t>(y) * stride; }

    // The samples whose centres lie in [from, to), in picture coordinates along
    // an axis of size samples; held to the plane.
    std::pair<int, int> samples(double from, double to, int size) const
    {
        const double scale = 1 << shift;
        const auto index = [&](double at) {
            return static_cast<int>(std::clamp(std::ceil(at / scale - 0.5), 0.0, static_cast<double>(size)));
        };
        return {index(from), index(to)};
    }
};

Plane planeOf(const vrq::rtc::VideoCanvas& canvas, std::size_t index)
{
    const int shift = index == 0 ? 0 : 1;
    return {canvas.planes[index], canvas.strides[index], (canvas.width + shift) >> shift,
            (canvas.height + shift) >> shift, shift};
}

// Paints shapes given in units from the pad's top-left corner.
struct Sketch {
    const vrq::rtc::VideoCanvas& canvas;
    double left; // the pad's corner, in pixels
    double top;
    double unit; // pixels

    void box(double x0, double y0, double x1, double y1, const Colour& colour) const
    {
        for (std::size_t index = 0; index < colour.size(); ++index) {
            const Plane plane = planeOf(canvas, index);
            const auto [left0, right] = plane.samples(left + x0 * unit, left + x1 * unit, plane.width);
            const auto [top0, bottom] = plane.samples(top + y0 * unit, top + y1 * unit, plane.height);
            for (int y = top0; y < bottom; ++y)
                std::fill(plane.row(y) + left0, plane.row(y) + right, colour[index]);
        }
    }

    void disc(double centreX, double centreY, double radius, const Colour& colour) const
    {
        const double x0 = left + centreX * unit;
        const double y0 = top + centreY * unit;
        const double r = radius * unit;
        for (std::size_t index = 0; index < colour.size(); ++index) {
            const Plane plane = planeOf(canvas, index);
            const double scale = 1 << plane.shift;
            const auto [left0, right] = plane.samples(x0 - r, x0 + r, plane.width);
            const auto [top0, bottom] = plane.samples(y0 - r, y0 + r, plane.height);
            for (int y = top0; y < bottom; ++y) {
                const double dy = (y + 0.5) * scale - y0;
                std::uint8_t* row = plane.row(y);
                for (int x = left0; x < right; ++x) {
                    const double dx = (x + 0.5) * scale - x0;
                    if (dx * dx + dy * dy <= r * r)
                        row[x] = colour[index];
                }
            }
        }
    }
};

const Colour& shown(const Pad& pad, std::uint32_t button, const Colour& lit = kLit)
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

void drawStick(const Sketch& sketch, double centreX, double centreY, const GamepadState::Stick& stick, const Colour& ring)
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
    if (!pad.seen || canvas.width <= 0 || canvas.height <= 0 ||
        std::any_of(canvas.planes.begin(), canvas.planes.end(), [](const std::uint8_t* plane) { return plane == nullptr; }))
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
