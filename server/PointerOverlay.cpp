#include "PointerOverlay.h"

#include "CanvasPlane.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vrqserver {

namespace {

constexpr CanvasColour kYellow = {210, 16, 146};
constexpr CanvasColour kWhite = {235, 128, 128};
constexpr CanvasColour kGrey = {96, 128, 128};
constexpr CanvasColour kBlack = {16, 128, 128};
constexpr int kMargin = 8; // of the button boxes from the top-right corner, in pixels

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

void fillBox(const vrq::rtc::VideoCanvas& canvas, const Box& box, const CanvasColour& colour)
{
    for (std::size_t index = 0; index < colour.size(); ++index) {
        const CanvasPlane plane = CanvasPlane::of(canvas, index);
        const SampleSpan columns = {std::clamp(scaledDown(box.left, plane.shift), 0, plane.width),
                                    std::clamp(scaledUp(box.right, plane.shift), 0, plane.width)};
        const SampleSpan rows = {std::clamp(scaledDown(box.top, plane.shift), 0, plane.height),
                                 std::clamp(scaledUp(box.bottom, plane.shift), 0, plane.height)};
        plane.fill(columns, rows, colour[index]);
    }
}

// The index of the first sample at or after value, held to [0, limit].
int clampedIndex(double value, int limit)
{
    return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(limit)));
}

// Paints the samples whose centres lie within the radius of the centre
// (in picture coordinates: pixel (x, y) spans [x, x+1) x [y, y+1)), looking
// at every sample the disc's bounding box touches.
void fillDisc(const vrq::rtc::VideoCanvas& canvas, double centreX, double centreY, double radius,
              const CanvasColour& colour)
{
    for (std::size_t index = 0; index < colour.size(); ++index) {
        const CanvasPlane plane = CanvasPlane::of(canvas, index);
        const double scale = 1.0 / (1 << plane.shift);
        const double x0 = centreX * scale;
        const double y0 = centreY * scale;
        const double r = radius * scale;
        const SampleSpan columns = {clampedIndex(std::floor(x0 - r), plane.width),
                                    clampedIndex(std::ceil(x0 + r), plane.width)};
        const SampleSpan rows = {clampedIndex(std::floor(y0 - r), plane.height),
                                 clampedIndex(std::ceil(y0 + r), plane.height)};
        plane.fillDisc(columns, rows, centreX, centreY, radius, colour[index]);
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
    if (!paintable(canvas))
        return;
    drawFingers(state.fingers, canvas);
    if (state.pointer)
        drawPointer(*state.pointer, canvas);
    if (state.mouseSeen)
        drawButtons(state.buttons, canvas);
}

} // namespace vrqserver
