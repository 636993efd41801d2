#include "vrq/platform/engine/RtcVideoFrame.h"

#include <algorithm>

namespace vrq::rtc {
namespace {

// YUV to RGB factors, scaled by 2^16.
struct Coefficients {
    int luma;
    int lumaOffset;
    int redFromV;
    int greenFromU;
    int greenFromV;
    int blueFromU;
};

Coefficients coefficientsFor(ColorMatrix matrix, bool fullRange)
{
    if (fullRange) {
        return matrix == ColorMatrix::Bt709 ? Coefficients{65536, 0, 103206, 12276, 30679, 121609}
                                            : Coefficients{65536, 0, 91881, 22553, 46802, 116130};
    }
    return matrix == ColorMatrix::Bt709 ? Coefficients{76309, 16, 117489, 13975, 34925, 138438}
                                        : Coefficients{76309, 16, 104597, 25675, 53279, 132201};
}

std::uint8_t clampByte(int scaled)
{
    return static_cast<std::uint8_t>(std::clamp((scaled + 32768) >> 16, 0, 255));
}

} // namespace

VideoFrame::VideoFrame(const VideoFrameInfo& info, const std::array<Plane, 3>& planes, std::shared_ptr<const void> owner)
    : m_info(info)
    , m_planes(planes)
    , m_owner(std::move(owner))
{
    if (m_info.format == PixelFormat::NV12)
        m_planes[2] = Plane{};
}

int VideoFrame::planeRowBytes(int index) const
{
    const int chromaWidth = (m_info.width + 1) / 2;
    if (index == 0)
        return m_info.width;
    if (index >= planeCount())
        return 0;
    return m_info.format == PixelFormat::NV12 ? chromaWidth * 2 : chromaWidth;
}

int VideoFrame::planeRows(int index) const
{
    if (index == 0)
        return m_info.height;
    return index < planeCount() ? (m_info.height + 1) / 2 : 0;
}

std::vector<std::uint8_t> VideoFrame::toRgba() const
{
    const int width = std::max(0, m_info.width);
    const int height = std::max(0, m_info.height);
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    const Coefficients c = coefficientsFor(m_info.matrix, m_info.fullRange);
    const bool interleaved = m_info.format == PixelFormat::NV12;
    std::uint8_t* out = rgba.data();
    for (int row = 0; row < height; ++row) {
        const std::uint8_t* luma = m_planes[0].data + static_cast<std::ptrdiff_t>(row) * m_planes[0].stride;
        const std::ptrdiff_t chromaRow = row / 2;
        const std::uint8_t* u = m_planes[1].data + chromaRow * m_planes[1].stride;
        const std::uint8_t* v = interleaved ? u + 1 : m_planes[2].data + chromaRow * m_planes[2].stride;
        const int chromaStep = interleaved ? 2 : 1;
        for (int column = 0; column < width; ++column) {
            const std::ptrdiff_t chroma = static_cast<std::ptrdiff_t>(column / 2) * chromaStep;
            const int y = c.luma * (luma[column] - c.lumaOffset);
            const int cb = u[chroma] - 128;
            const int cr = v[chroma] - 128;
            *out++ = clampByte(y + c.redFromV * cr);
            *out++ = clampByte(y - c.greenFromU * cb - c.greenFromV * cr);
            *out++ = clampByte(y + c.blueFromU * cb);
            *out++ = 255;
        }
    }
    return rgba;
}

} // namespace vrq::rtc
