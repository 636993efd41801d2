#include "TestFrames.h"

#include <array>
#include <vector>

namespace vrqtest {

std::shared_ptr<const vrq::rtc::VideoFrame> makeFrame(vrq::rtc::PixelFormat format, int width, int height, int lumaStride,
                                                      std::uint8_t y, std::uint8_t u, std::uint8_t v)
{
    using vrq::rtc::PixelFormat;
    const int padding = lumaStride - width;
    const int chromaWidth = (width + 1) / 2;
    const int chromaRows = (height + 1) / 2;
    const int chromaStride = (format == PixelFormat::NV12 ? chromaWidth * 2 : chromaWidth) + padding;
    const int planes = format == PixelFormat::NV12 ? 2 : 3;
    auto memory = std::make_shared<std::array<std::vector<std::uint8_t>, 3>>();
    std::array<vrq::rtc::VideoFrame::Plane, 3> views{};
    for (int p = 0; p < planes; ++p) {
        const int stride = p == 0 ? lumaStride : chromaStride;
        const int rows = p == 0 ? height : chromaRows;
        const int rowBytes = stride - padding;
        auto& bytes = (*memory)[static_cast<std::size_t>(p)];
        bytes.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows), 0xEE);
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < rowBytes; ++column) {
                std::uint8_t value = p == 0 ? y : p == 2 ? v : u;
                if (format == PixelFormat::NV12 && p == 1)
                    value = column % 2 == 0 ? u : v;
                bytes[static_cast<std::size_t>(row * stride + column)] = value;
            }
        }
        views[static_cast<std::size_t>(p)] = {bytes.data(), stride};
    }
    vrq::rtc::VideoFrameInfo info;
    info.format = format;
    info.width = width;
    info.height = height;
    return std::make_shared<vrq::rtc::VideoFrame>(info, views, memory);
}

} // namespace vrqtest
