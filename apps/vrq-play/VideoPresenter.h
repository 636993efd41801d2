#pragma once

#include "vrq/platform/engine/RtcVideoFrame.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

struct SDL_Renderer;
struct SDL_Texture;

// Puts decoded frames into one streaming YUV texture of the renderer: the
// decoder's planes (I420 or NV12) are uploaded as they are, with no RGB
// conversion on our side. The texture is made again only when the size, the
// layout or the colour matrix changes. It also measures how long each frame
// took from its decoder to the screen. Main thread only.
class VideoPresenter {
public:
    // Decoded-to-presented figures, in milliseconds.
    struct Figures {
        std::uint64_t presented = 0; // frames shown at least once
        double p50Ms = 0;
        double p99Ms = 0;
        double drawP50Ms = 0; // of that, the window's own drawing and presenting
    };

    explicit VideoPresenter(SDL_Renderer* renderer);
    ~VideoPresenter();
    VideoPresenter(const VideoPresenter&) = delete;
    VideoPresenter& operator=(const VideoPresenter&) = delete;

    // Uploads the frame unless it is the one the texture holds. False when
    // there is nothing new to show.
    bool upload(const std::shared_ptr<const vrq::rtc::VideoFrame>& frame);
    // The texture holding the last uploaded frame; null before the first.
    SDL_Texture* texture() const { return m_texture; }
    // The window, drawn from drawnFrom on, was presented at `at`: a frame
    // uploaded since the last present counts once, with its latency.
    void presented(std::chrono::steady_clock::time_point drawnFrom, std::chrono::steady_clock::time_point at);
    Figures figures() const;
    // The latencies kept (the last kLatencyCap of them), in no set order.
    const std::vector<double>& latencies() const { return m_latencies; }

    static constexpr std::size_t kLatencyCap = 36000; // ten minutes at 60 fps

private:
    bool ensureTexture(const vrq::rtc::VideoFrameInfo& info);
    bool copyPlanes(const vrq::rtc::VideoFrame& frame);

    SDL_Renderer* m_renderer;
    SDL_Texture* m_texture = nullptr;
    vrq::rtc::VideoFrameInfo m_textureInfo;
    std::weak_ptr<const vrq::rtc::VideoFrame> m_shownFrame;
    std::chrono::steady_clock::time_point m_pendingDecodedAt{};
    bool m_pending = false;
    std::uint64_t m_presented = 0;
    std::vector<double> m_latencies;
    std::vector<double> m_drawTimes;
    std::size_t m_nextLatency = 0; // where the next ones go once the cap is reached
};
