#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vrq::rtc {

// A decoded video frame, RGBA, tightly packed (stride = width * 4).
struct VideoFrame {
    int width = 0;
    int height = 0;
    std::int64_t timestampUs = 0; // presentation time
    std::vector<std::uint8_t> rgba;
};

// Receives decoded frames on the engine's streaming thread.
class VideoSink {
public:
    virtual ~VideoSink() = default;
    virtual void onFrame(std::shared_ptr<const VideoFrame> frame) = 0;
};

} // namespace vrq::rtc
