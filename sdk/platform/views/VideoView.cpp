#include "vrq/platform/views/VideoView.h"

namespace vrq {

VideoView::VideoView(Rect frame)
    : View(frame)
{
}

void VideoView::onFrame(std::shared_ptr<const rtc::VideoFrame> frame)
{
    if (!frame)
        return;
    const Size size{static_cast<double>(frame->width()), static_cast<double>(frame->height())};
    bool sizeChanged = false;
    bool first = false;
    std::function<void()> observer;
    {
        std::lock_guard lock(m_mutex);
        m_latest = std::move(frame);
        sizeChanged = !(size == m_videoSize);
        m_videoSize = size;
        first = m_awaitingFirstFrame;
        m_awaitingFirstFrame = false;
        observer = m_frameObserver;
    }
    ++m_framesReceived;
    if (observer)
        observer();
    VideoViewDelegate* delegate = m_delegate.load();
    if (!delegate)
        return;
    if (sizeChanged)
        delegate->videoViewDidChangeVideoSize(*this, size);
    if (first)
        delegate->videoViewIsFirstFrame(*this, true);
}

void VideoView::setFrameObserver(std::function<void()> observer)
{
    std::lock_guard lock(m_mutex);
    m_frameObserver = std::move(observer);
}

std::shared_ptr<const rtc::VideoFrame> VideoView::latestFrame() const
{
    std::lock_guard lock(m_mutex);
    return m_latest;
}

Size VideoView::videoSize() const
{
    std::lock_guard lock(m_mutex);
    return m_videoSize;
}

void VideoView::resetFirstFrame()
{
    std::lock_guard lock(m_mutex);
    m_awaitingFirstFrame = true;
}

} // namespace vrq
