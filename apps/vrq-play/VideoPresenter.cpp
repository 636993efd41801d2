#include "VideoPresenter.h"

#include "vrq/log/VRQLog.h"

#include <SDL.h>

#include <algorithm>

namespace {

SDL_YUV_CONVERSION_MODE conversionMode(const vrq::rtc::VideoFrameInfo& info)
{
    if (info.fullRange)
        return SDL_YUV_CONVERSION_JPEG;
    return info.matrix == vrq::rtc::ColorMatrix::Bt709 ? SDL_YUV_CONVERSION_BT709 : SDL_YUV_CONVERSION_BT601;
}

bool sameTexture(const vrq::rtc::VideoFrameInfo& a, const vrq::rtc::VideoFrameInfo& b)
{
    return a.format == b.format && a.width == b.width && a.height == b.height && a.matrix == b.matrix &&
           a.fullRange == b.fullRange;
}

double percentileOf(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    const auto index = std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

} // namespace

VideoPresenter::VideoPresenter(SDL_Renderer* renderer)
    : m_renderer(renderer)
{
}

VideoPresenter::~VideoPresenter()
{
    if (m_texture)
        SDL_DestroyTexture(m_texture);
}

bool VideoPresenter::upload(const std::shared_ptr<const vrq::rtc::VideoFrame>& frame)
{
    if (!frame || frame->width() <= 0 || frame->height() <= 0)
        return false;
    if (m_shownFrame.lock() == frame)
        return false;
    if (!ensureTexture(frame->info()) || !copyPlanes(*frame))
        return false;
    m_shownFrame = frame;
    // A frame replaced before any present was never seen: only the newest counts.
    m_pendingDecodedAt = frame->info().decodedAt;
    m_pending = true;
    return true;
}

bool VideoPresenter::ensureTexture(const vrq::rtc::VideoFrameInfo& info)
{
    if (m_texture && sameTexture(info, m_textureInfo))
        return true;
    if (m_texture)
        SDL_DestroyTexture(m_texture);
    // The renderer picks its YUV shader or converter when the texture is made.
    SDL_SetYUVConversionMode(conversionMode(info));
    const Uint32 format = info.format == vrq::rtc::PixelFormat::NV12 ? SDL_PIXELFORMAT_NV12 : SDL_PIXELFORMAT_IYUV;
    m_texture = SDL_CreateTexture(m_renderer, format, SDL_TEXTUREACCESS_STREAMING, info.width, info.height);
    if (!m_texture) {
        VRQ_LOG(2, "cannot make a %dx%d video texture: %s", info.width, info.height, SDL_GetError());
        return false;
    }
    // Nearest sampling: under a software rasteriser (Mesa's, on a display
    // without a GPU) linear sampling of the three planes doubles the time a
    // 1080p frame takes to draw into a 720p window (18 ms against 9, measured).
    SDL_SetTextureScaleMode(m_texture, SDL_ScaleModeNearest);
    m_textureInfo = info;
    return true;
}

bool VideoPresenter::copyPlanes(const vrq::rtc::VideoFrame& frame)
{
    const auto& y = frame.plane(0);
    const auto& u = frame.plane(1);
    int result = 0;
    if (frame.format() == vrq::rtc::PixelFormat::NV12) {
        result = SDL_UpdateNVTexture(m_texture, nullptr, y.data, y.stride, u.data, u.stride);
    } else {
        const auto& v = frame.plane(2);
        result = SDL_UpdateYUVTexture(m_texture, nullptr, y.data, y.stride, u.data, u.stride, v.data, v.stride);
    }
    if (result != 0)
        VRQ_LOG(2, "cannot upload a video frame: %s", SDL_GetError());
    return result == 0;
}

void VideoPresenter::presented(std::chrono::steady_clock::time_point drawnFrom, std::chrono::steady_clock::time_point at)
{
    if (!m_pending)
        return;
    m_pending = false;
    ++m_presented;
    const double latency = std::chrono::duration<double, std::milli>(at - m_pendingDecodedAt).count();
    const double drawing = std::chrono::duration<double, std::milli>(at - drawnFrom).count();
    if (m_latencies.size() < kLatencyCap) {
        m_latencies.push_back(latency);
        m_drawTimes.push_back(drawing);
        return;
    }
    m_latencies[m_nextLatency] = latency;
    m_drawTimes[m_nextLatency] = drawing;
    m_nextLatency = (m_nextLatency + 1) % kLatencyCap;
}

VideoPresenter::Figures VideoPresenter::figures() const
{
    return {m_presented, percentileOf(m_latencies, 0.5), percentileOf(m_latencies, 0.99), percentileOf(m_drawTimes, 0.5)};
}
