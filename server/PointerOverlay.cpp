#include "PointerOverlay.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace vrqserver {

namespace {

using Colour = std::array<std::uint8_t, 3>; // Y, U, V
constexpr Colour kYellow = {210, 16, 146};
constexpr Colour kWhite = {235, 128, 128};
constexpr Colour kGrey = {96, 128, 128};
constexpr Colour kBlack = {16, 128, 128};
constexpr int kMargin = 8; // of the button boxes from the top-right corner, in pixels

// One plane of the canvas; shift is 0 for luma, 1 for the half-size chroma planes.
struct Plane {
    std::uint8_t* data;
    int stride;
    int width;
    int height;
    int shift;

    std::uint8_t* row(int y) const { return data + static_cast<std::ptrdiff_t>(y) * stride; }
};

Plane planeOf(const vrq::rtc::VideoCanvas& canvas, std::size_t index)
{
    const int shift = index == 0 ? 0 : 1;
    return {canvas.planes[index], canvas.strides[index], (canvas.width + shift) >> shift,
            (canvas.height + shift) >> shift, shift};
}

// Half-open pixel bounds, in picture coordinates.
struct Box {
    int left;
    int top;
    int right;
    int bottom;

    Box grown(int by) const { return {left - by, top - by, right + by, bottom + by}; }
};

// Rounds down for the start and up for the end, so that a chroma sample
// covering any touched pixel is painted.
int scaledDown(int value, int shift)
{
    return value >> shift;
}

int scaledUp(int value, int shift)
{
    return -((-value) >> shift);
}

void fillBox(const vrq::rtc::VideoCanvas& canvas, const Box& box, const Colour& colour)
{
    for (std::size_t index = 0; index < colour.size(); ++index) {
        const Plane plane = planeOf(canvas, index);
        const int left = std::clamp(scaledDown(box.left, plane.shift), 0, plane.width);
        const int right = std::clamp(scaledUp(box.right, plane.shift), 0, plane.width);
        const int top = std::clamp(scaledDown(box.top, plane.shift), 0, plane.height);
        const int bottom = std::clamp(scaledUp(box.bottom, plane.shift), 0, plane.height);
        for (int y = top; y < bottom; ++y)
            std::fill(plane.row(y) + left, plane.row(y) + right, colour[index]);
    }
}

// The index of the first sample at or after value, held to [0, limit].
int clampedIndex(double value, int limit)
{
    return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(limit)));
}

// Paints the samples whose centres lie within the radius of the centre
// (in picture coordinates: pixel (x, y) spans [x, x+1) x [y, y+1)).
void fillDisc(const vrq::rtc::VideoCanvas& canvas, double centreX, double centreY, double radius, const Colour& colour)
{
    for (std::size_t index = 0; index < colour.size(); ++index) {
        const Plane plane = planeOf(canvas, index);
        const double scale = 1.0 / (1 << plane.shift);
        const double x0 = centreX * scale;
        const double y0 = centreY * scale;
        const double r = radius * scale;
        const int left = clampedIndex(std::floor(x0 - r), plane.width);
        const int right = clampedIndex(std::ceil(x0 + r), plane.width);
        const int top = clampedIndex(std::floor(y0 - r), plane.height);
        const int bottom = clampedIndex(std::ceil(y0 + r), plane.height);
        for (int y = top; y < bottom; ++y) {
            const double dy = y + 0.5 - y0;
            std::uint8_t* row = plane.row(y);
            for (int x = left; x < right; ++x) {
                const double dx = x + 0.5 - x0;
                if (dx * dx + dy * dy <= r * r)
                    row[x] = colour[index];
            }
        }
    }
}

// The pixel a normalised position falls on, held to the picture.
int pixelAt(double position, int size)
{
    return std::clamp(static_cast<int>(std::floor(position * size)), 0, size - 1);
}

void drawFingers(const std::vector<PointerState::Finger>& fingers, const vrq::rtc::VideoCanvas& canvas)
{
    const double radius = std::max(2.0, 0.02 * canvas.height);
    const double ring = std::max(1.0, std::floor(radius / 4));
    for (const auto& finger : fingers) {
        const double x = finger.position.x * canvas.width;
        const double y = finger.position.y * canvas.height;
        fillDisc(canvas, x, y, radius + ring, kBlack);
        fillDisc(canvas, x, y, radius, kYellow);
    }
}

void drawPointer(const PointerState::Point& pointer, const vrq::rtc::VideoCanvas& canvas)
{
    const int x = pixelAt(pointer.x, canvas.width);
    const int y = pixelAt(pointer.y, canvas.height);
    const int arm = std::max(3, canvas.height / 40);
    const int half = std::max(1, canvas.height / 240) / 2;
    const Box across = {x - arm, y - half, x + arm + 1, y + half + 1};
    const Box down = {x - half, y - arm, x + half + 1, y + arm + 1};
    fillBox(canvas, across.grown(1), kBlack);
    fillBox(canvas, down.grown(1), kBlack);
    fillBox(canvas, across, kWhite);
    fillBox(canvas, down, kWhite);
}

void drawButtons(const PointerState::Buttons& buttons, const vrq::rtc::VideoCanvas& canvas)
{
    const int size = std::max(5, canvas.height / 30);
    const int gap = std::max(1, size / 4);
    const int inset = std::max(1, size / 6);
    const bool down[] = {buttons.left, buttons.middle, buttons.right};
    int left = canvas.width - kMargin - 3 * size - 2 * gap;
    for (const bool isDown : down) {
        const Box box = {left, kMargin, left + size, kMargin + size};
        fillBox(canvas, box, kBlack);
        fillBox(canvas, box.grown(-inset), isDown ? kWhite : kGrey);
        left += size + gap;
    }
}

} // namespace

void PointerOverlay::draw(const PointerState::Snapshot& state, vrq::rtc::VideoCanvas& canvas)
{
    if (canvas.width <= 0 || canvas.height <= 0 ||
        std::any_of(canvas.planes.begin(), canvas.planes.end(), [](const std::uint8_t* plane) { return plane == nullptr; }))
        return;
    drawFingers(state.fingers, canvas);
    if (state.pointer)
        drawPointer(*state.pointer, canvas);
    if (state.mouseSeen)
        drawButtons(state.buttons, canvas);
}

} // namespace vrqserver
