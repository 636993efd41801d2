#include "SceneOverlay.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>

namespace vrqserver {

namespace {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kMargin = 8;   // from the frame's corner, in pixels
constexpr int kPadding = 2;  // around the text inside its box, in font pixels
constexpr std::uint8_t kInk = 235;
constexpr std::uint8_t kPaper = 16;
constexpr std::uint8_t kNeutralChroma = 128;

// Rows top to bottom; the five low bits of a row are its pixels, left to right.
using Glyph = std::array<std::uint8_t, kGlyphHeight>;

struct FontEntry {
    char character;
    Glyph rows;
};

constexpr FontEntry kFont[] = {
    {'A', {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'B', {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110}},
    {'C', {0b01110, 0b10001, 0b10000, 0b10000, 0b10000, 0b10001, 0b01110}},
    {'D', {0b11110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b11110}},
    {'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
    {'F', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b10000}},
    {'G', {0b01110, 0b10001, 0b10000, 0b10111, 0b10001, 0b10001, 0b01111}},
    {'H', {0b10001, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'I', {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'J', {0b00111, 0b00010, 0b00010, 0b00010, 0b00010, 0b10010, 0b01100}},
    {'K', {0b10001, 0b10010, 0b10100, 0b11000, 0b10100, 0b10010, 0b10001}},
    {'L', {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111}},
    {'M', {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001}},
    {'N', {0b10001, 0b10001, 0b11001, 0b10101, 0b10011, 0b10001, 0b10001}},
    {'O', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'P', {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000}},
    {'Q', {0b01110, 0b10001, 0b10001, 0b10001, 0b10101, 0b10010, 0b01101}},
    {'R', {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001}},
    {'S', {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110}},
    {'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
    {'U', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'V', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01010, 0b00100}},
    {'W', {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b10101, 0b01010}},
    {'X', {0b10001, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001, 0b10001}},
    {'Y', {0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100, 0b00100}},
    {'Z', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b11111}},
    {'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    {'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'2', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b01000, 0b11111}},
    {'3', {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
    {'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    {'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    {'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    {' ', {0, 0, 0, 0, 0, 0, 0}},
    {',', {0, 0, 0, 0, 0b00110, 0b00100, 0b01000}},
    {'-', {0, 0, 0, 0b11111, 0, 0, 0}},
    {'.', {0, 0, 0, 0, 0, 0b01100, 0b01100}},
    {':', {0, 0b01100, 0b01100, 0, 0b01100, 0b01100, 0}},
    {'=', {0, 0, 0b11111, 0, 0b11111, 0, 0}},
    {'_', {0, 0, 0, 0, 0, 0, 0b11111}},
    {'/', {0b00001, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b10000}},
    {'?', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0, 0b00100}},
};

const Glyph& glyphFor(char character)
{
    const char wanted = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    const auto* end = std::end(kFont);
    const auto* found = std::find_if(std::begin(kFont), end, [&](const FontEntry& entry) { return entry.character == wanted; });
    if (found == end)
        found = std::find_if(std::begin(kFont), end, [](const FontEntry& entry) { return entry.character == '?'; });
    return found->rows;
}

// Fills a rectangle of one plane, clipped to the plane.
void fill(std::uint8_t* plane, int stride, int planeWidth, int planeHeight, int x, int y, int width, int height,
          std::uint8_t value)
{
    const int left = std::clamp(x, 0, planeWidth);
    const int right = std::clamp(x + width, 0, planeWidth);
    const int top = std::clamp(y, 0, planeHeight);
    const int bottom = std::clamp(y + height, 0, planeHeight);
    for (int row = top; row < bottom; ++row)
        std::fill(plane + static_cast<std::ptrdiff_t>(row) * stride + left,
                  plane + static_cast<std::ptrdiff_t>(row) * stride + right, value);
}

} // namespace

void SceneOverlay::setText(const std::string& text)
{
    std::lock_guard lock(m_mutex);
    m_text = text.substr(0, kMaxLength);
}

std::string SceneOverlay::text() const
{
    std::lock_guard lock(m_mutex);
    return m_text;
}

void SceneOverlay::draw(vrq::rtc::VideoCanvas& canvas) const
{
    const std::string line = text();
    if (line.empty() || canvas.width <= 0 || canvas.height <= 0)
        return;
    // Big enough to read at any size: a font pixel is a 180th of the height, at least one pixel.
    const int scale = std::max(1, canvas.height / 180);
    const int advance = (kGlyphWidth + 1) * scale;
    const int boxWidth = static_cast<int>(line.size()) * advance + (2 * kPadding - 1) * scale;
    const int boxHeight = (kGlyphHeight + 2 * kPadding) * scale;
    const int chromaWidth = (canvas.width + 1) / 2;
    const int chromaHeight = (canvas.height + 1) / 2;

    fill(canvas.planes[0], canvas.strides[0], canvas.width, canvas.height, kMargin, kMargin, boxWidth, boxHeight, kPaper);
    for (int plane = 1; plane < 3; ++plane)
        fill(canvas.planes[plane], canvas.strides[plane], chromaWidth, chromaHeight, kMargin / 2, kMargin / 2,
             (boxWidth + 1) / 2, (boxHeight + 1) / 2, kNeutralChroma);

    const int top = kMargin + kPadding * scale;
    for (std::size_t index = 0; index < line.size(); ++index) {
        const Glyph& glyph = glyphFor(line[index]);
        const int left = kMargin + kPadding * scale + static_cast<int>(index) * advance;
        for (int row = 0; row < kGlyphHeight; ++row)
            for (int column = 0; column < kGlyphWidth; ++column)
                if (glyph[static_cast<std::size_t>(row)] & (1u << (kGlyphWidth - 1 - column)))
                    fill(canvas.planes[0], canvas.strides[0], canvas.width, canvas.height, left + column * scale,
                         top + row * scale, scale, scale, kInk);
    }
}

} // namespace vrqserver
