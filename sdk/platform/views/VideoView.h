#pragma once

#include "vrq/platform/engine/RtcVideoFrame.h"
#include "vrq/platform/views/View.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace vrq {

class VideoView;

// Render-view events, raised on the thread that delivered the frame (the
// engine's streaming thread).
class VideoViewDelegate {
public:
    virtual ~VideoViewDelegate() = default;
    virtual void videoViewDidChangeVideoSize(VideoView& view, Size size) = 0;
    virtual void videoViewIsFirstFrame(VideoView& view, bool isFirstFrame) = 0;
};

// A view that shows decoded video: it keeps the latest frame and its size for
// a renderer, and announces the first frame and every change of size.
class VideoView : public View, public rtc::VideoSink {
public:
    explicit VideoView(Rect frame = {});

    // Frames arrive on the engine's streaming thread.
    void onFrame(std::shared_ptr<const rtc::VideoFrame> frame) override;

    std::shared_ptr<const rtc::VideoFrame> latestFrame() const;
    Size videoSize() const;
    std::uint64_t framesReceived() const { return m_framesReceived.load(); }

    // The next frame counts as a first frame again (a new stream was attached).
    void resetFirstFrame();
    // Called on the engine's thread after each frame was stored, for a
    // renderer that draws frames as they come; it must return at once. May be
    // changed from any thread; an empty function removes it.
    void setFrameObserver(std::function<void()> observer);
    // Non-owning; may be changed from any thread.
    void setVideoViewDelegate(VideoViewDelegate* delegate) { m_delegate.store(delegate); }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const rtc::VideoFrame> m_latest; // guarded by m_mutex
    Size m_videoSize;                                // guarded by m_mutex
    bool m_awaitingFirstFrame = true;                // guarded by m_mutex
    std::function<void()> m_frameObserver;           // guarded by m_mutex
    std::atomic<std::uint64_t> m_framesReceived{0};
    std::atomic<VideoViewDelegate*> m_delegate{nullptr};
};

} // namespace vrq
