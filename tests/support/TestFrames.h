#pragma once

#include "vrq/platform/engine/RtcVideoFrame.h"

#include <cstdint>
#include <memory>

namespace vrqtest {

// A frame in memory of its own, every sample of a plane the same value. Rows
// are padded past their bytes (luma to lumaStride; chroma by as much) with
// 0xEE, so that a reader who ignores strides reads wrong values.
std::shared_ptr<const vrq::rtc::VideoFrame> makeFrame(vrq::rtc::PixelFormat format, int width, int height, int lumaStride,
                                                      std::uint8_t y, std::uint8_t u, std::uint8_t v);

// A grey I420 frame of that size with tight rows.
inline std::shared_ptr<const vrq::rtc::VideoFrame> greyFrame(int width, int height)
{
    return makeFrame(vrq::rtc::PixelFormat::I420, width, height, width, 0x7f, 128, 128);
}

} // namespace vrqtest
