#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace vrq::rtc {

// The layouts in which decoded video reaches a host: 4:2:0 with 8 bits a
// sample, as the decoder produced them. Chroma planes cover (width + 1) / 2
// by (height + 1) / 2 samples.
enum class PixelFormat : int {
    I420 = 0, // three planes: Y, U, V
    NV12 = 1, // two planes: Y, then U and V interleaved (U first)
};

// How the frame's YUV values map to RGB.
enum class ColorMatrix : int { Bt601 = 0, Bt709 = 1 };

struct VideoFrameInfo {
    PixelFormat format = PixelFormat::I420;
    int width = 0;
    int height = 0;
    std::int64_t timestampUs = 0; // the stream's presentation time
    std::chrono::steady_clock::time_point decodedAt{};
    ColorMatrix matrix = ColorMatrix::Bt601;
    bool fullRange = false; // 0-255 rather than 16-235 (luma) and 16-240 (chroma)
};

// One decoded picture, read-only and shared: its planes are the decoder's own
// memory, kept alive (and unchanged) for as long as any reference to the
// frame exists. Nothing is converted or copied on the way to a host.
class VideoFrame {
public:
    struct Plane {
        const std::uint8_t* data = nullptr;
        int stride = 0; // bytes from the start of one row to the next
    };

    // The planes must stay valid while owner lives; the frame keeps owner.
    VideoFrame(const VideoFrameInfo& info, const std::array<Plane, 3>& planes, std::shared_ptr<const void> owner);

    const VideoFrameInfo& info() const { return m_info; }
    PixelFormat format() const { return m_info.format; }
    int width() const { return m_info.width; }
    int height() const { return m_info.height; }
    std::int64_t timestampUs() const { return m_info.timestampUs; }

    int planeCount() const { return m_info.format == PixelFormat::I420 ? 3 : 2; }
    // Plane 0 is luma; planes past planeCount() are empty.
    const Plane& plane(int index) const { return m_planes.at(static_cast<std::size_t>(index)); }
    // The bytes a row of the plane holds, and its number of rows.
    int planeRowBytes(int index) const;
    int planeRows(int index) const;

    // The picture as RGBA, tightly packed (width * 4 bytes a row), converted on
    // each call: for a snapshot or a host that asks, never on the frame path.
    std::vector<std::uint8_t> toRgba() const;

private:
    VideoFrameInfo m_info;
    std::array<Plane, 3> m_planes;
    std::shared_ptr<const void> m_owner;
};

// Receives decoded frames on the engine's streaming thread.
class VideoSink {
public:
    virtual ~VideoSink() = default;
    virtual void onFrame(std::shared_ptr<const VideoFrame> frame) = 0;
};

} // namespace vrq::rtc
