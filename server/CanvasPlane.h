#pragma once

// Painting on the planes of an I420 canvas, for the overlays drawn over the video.

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vrqserver {

using CanvasColour = std::array<std::uint8_t, 3>; // Y, U, V

// A half-open run of sample indices along one axis of a plane.
struct SampleSpan {
    int begin;
    int end;
};

// One plane of a canvas; shift is 0 for luma, 1 for the half-size chroma planes.
struct CanvasPlane {
    std::uint8_t* data;
    int stride;
    int width;
    int height;
    int shift;

    // Plane index of the canvas: 0 for luma, 1 and 2 for chroma.
    static CanvasPlane of(const vrq::rtc::VideoCanvas& canvas, std::size_t index)
    {
        const int shift = index == 0 ? 0 : 1;
        return {canvas.planes[index], canvas.strides[index], (canvas.width + shift) >> shift,
                (canvas.height + shift) >> shift, shift};
    }

    std::uint8_t* row(int y) const { return data + static_cast<std::ptrdiff_t>(y) * stride; }

    // Sets every sample in columns x rows, which the caller holds to the plane.
    void fill(SampleSpan columns, SampleSpan rows, std::uint8_t value) const
    {
        for (int y = rows.begin; y < rows.end; ++y)
            std::fill(row(y) + columns.begin, row(y) + columns.end, value);
    }

    // Sets the samples in columns x rows whose centres lie within radius of
    // (centreX, centreY). The disc is in picture coordinates, where pixel
    // (x, y) spans [x, x+1) x [y, y+1); the spans are the caller's, held to the plane.
    void fillDisc(SampleSpan columns, SampleSpan rows, double centreX, double centreY, double radius,
                  std::uint8_t value) const
    {
        const double scale = 1 << shift;
        for (int y = rows.begin; y < rows.end; ++y) {
            const double dy = (y + 0.5) * scale - centreY;
            std::uint8_t* samples = row(y);
            for (int x = columns.begin; x < columns.end; ++x) {
                const double dx = (x + 0.5) * scale - centreX;
                if (dx * dx + dy * dy <= radius * radius)
                    samples[x] = value;
            }
        }
    }
};

// Whether the canvas has a picture and all three planes to paint on.
inline bool paintable(const vrq::rtc::VideoCanvas& canvas)
{
    return canvas.width > 0 && canvas.height > 0 &&
           std::none_of(canvas.planes.begin(), canvas.planes.end(),
                        [](const std::uint8_t* plane) { return plane == nullptr; });
}

} // namespace vrqserver
