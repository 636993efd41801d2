#pragma once

// A frame for the overlay tests to draw on, which also shows what was written
// where nothing may be.

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vrqtest {

// An I420 frame of one colour whose rows are padded past the width, and whose
// planes are followed by guard rows.
struct TestFrame {
    static constexpr std::uint8_t kLuma = 60;
    static constexpr std::uint8_t kU = 90;
    static constexpr std::uint8_t kV = 160;
    static constexpr int kGuardRows = 2; // rows past each plane's end, which nobody may write

    TestFrame(int pictureWidth, int pictureHeight)
        : width(pictureWidth)
        , height(pictureHeight)
        , chromaWidth((width + 1) / 2)
        , chromaHeight((height + 1) / 2)
        , lumaStride(width + 30)
        , chromaStride(chromaWidth + 13)
        , luma(static_cast<std::size_t>(lumaStride * (height + kGuardRows)), kLuma)
        , u(static_cast<std::size_t>(chromaStride * (chromaHeight + kGuardRows)), kU)
        , v(static_cast<std::size_t>(chromaStride * (chromaHeight + kGuardRows)), kV)
    {
        canvas.width = width;
        canvas.height = height;
        canvas.planes = {luma.data(), u.data(), v.data()};
        canvas.strides = {lumaStride, chromaStride, chromaStride};
    }
    std::uint8_t y(int x, int row) const { return luma[static_cast<std::size_t>(row * lumaStride + x)]; }
    std::uint8_t cb(int x, int row) const { return u[static_cast<std::size_t>(row * chromaStride + x)]; }
    std::uint8_t cr(int x, int row) const { return v[static_cast<std::size_t>(row * chromaStride + x)]; }

    // The samples outside the picture (row padding and guard rows) that differ from the background.
    int writtenOutside() const
    {
        int written = 0;
        for (int row = 0; row < height + kGuardRows; ++row)
            for (int x = 0; x < lumaStride; ++x)
                written += (x >= width || row >= height) && y(x, row) != kLuma ? 1 : 0;
        for (int row = 0; row < chromaHeight + kGuardRows; ++row)
            for (int x = 0; x < chromaStride; ++x)
                written += (x >= chromaWidth || row >= chromaHeight) && (cb(x, row) != kU || cr(x, row) != kV) ? 1 : 0;
        return written;
    }

    int width;
    int height;
    int chromaWidth;
    int chromaHeight;
    int lumaStride;
    int chromaStride;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> u;
    std::vector<std::uint8_t> v;
    vrq::rtc::VideoCanvas canvas;
};

} // namespace vrqtest
