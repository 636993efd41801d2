#include "vrq/control/VRQVirtualMouseCursor.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Touch.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kCursorViewSize = 50;

bool isFinite(vrq::Point point)
{
    return std::isfinite(point.x) && std::isfinite(point.y);
}

// A length along a parent extent on the grid. Positive values round down,
// zero and negative ones toward zero, and a positive value of at most 0.001
// rounds up: kept as the remote side expects.
std::optional<double> toGrid(double value, double extent)
{
    if (!(extent > 0) || !std::isfinite(value))
        return std::nullopt;
    const double grid = value * VRQVirtualMouseCursor::kGridSize / extent;
    return value > 0.001 ? std::floor(grid) : std::ceil(grid);
}

} // namespace

VRQVirtualMouseCursor::VRQVirtualMouseCursor(vrq::Rect frame, std::weak_ptr<VRQGameController> controller)
    : View(frame)
    , m_cursorView(std::make_shared<vrq::View>(vrq::Rect{{0, 0}, {kCursorViewSize, kCursorViewSize}}))
    , m_cursorImageView(std::make_shared<vrq::ImageView>(vrq::Rect{{0, 0}, {kCursorViewSize, kCursorViewSize}}))
    , m_weakController(std::move(controller))
{
    m_cursorView->setBackgroundColor({});
    m_cursorView->setUserInteractionEnabled(false);
    m_cursorView->setHidden(true);
    m_cursorImageView->setContentMode(vrq::ContentMode::ScaleToFill);
    m_cursorImageView->setBackgroundColor({});
    m_cursorView->addSubview(m_cursorImageView);
    addSubview(m_cursorView);
    m_cursorView->setCenter({bounds().size.width / 2, bounds().size.height / 2});
}

std::shared_ptr<VRQVirtualMouseCursor> VRQVirtualMouseCursor::initWithConfig(const nlohmann::json&, vrq::Size,
                                                                             std::weak_ptr<VRQGameController>)
{
    return std::make_shared<VRQVirtualMouseCursor>(vrq::Rect{}, std::weak_ptr<VRQGameController>());
}

// MARK: - Settings

void VRQVirtualMouseCursor::setVideoSize(vrq::Size size)
{
    VRQ_LOG(1, "setVideoSize:%s", vrq::stringFromSize(size).c_str());
    if (size.width != 0 && size.height != 0)
        m_videoSize = size;
}

void VRQVirtualMouseCursor::setCursorTouchMode(int mode)
{
    VRQ_LOG(1, "setCursorTouchMode:%d", mode);
    m_touchMode = mode;
}

void VRQVirtualMouseCursor::setCursorIsShow(bool show)
{
    VRQ_LOG(1, "setCursorIsShow:%d", show ? 1 : 0);
    m_remoteIsShow = show;
    m_cursorView->setHidden(!show);
    m_fpsControlModel = !show;
}

void VRQVirtualMouseCursor::setCursorSensitive(double sensitivity)
{
    VRQ_LOG(1, "setCursorSensitive:%.1f", sensitivity);
    m_sensitivity = sensitivity;
}

void VRQVirtualMouseCursor::setClickTypeIsLeft(bool isLeft)
{
    VRQ_LOG(1, "setClickTypeIsLeft:%d", isLeft ? 1 : 0);
    m_sendLeftClick = isLeft;
}

void VRQVirtualMouseCursor::setCursorImage(std::shared_ptr<const vrq::Image> image, vrq::Rect remoteFrame)
{
    const double width = frame().size.width;
    const double height = frame().size.height;
    const vrq::Rect local{{remoteFrame.origin.x * width / kGridSize, remoteFrame.origin.y * height / kGridSize},
                          {remoteFrame.size.width * width / kGridSize, remoteFrame.size.height * height / kGridSize}};
    const auto within = [](double value, double low, double high) { return value >= low && value <= high; };
    // A NaN fails every comparison, so it is refused too.
    if (!image || !within(local.origin.x, -200, 2000) || !within(local.origin.y, -200, 2000)
        || !(local.size.width > 0.00001 && local.size.width <= 2000) || !(local.size.height > 0.00001 && local.size.height <= 2000))
        return;
    m_cursorImageView->setFrame(local);
    m_cursorImageView->setImage(std::move(image));
    m_cursorImageView->setHidden(false);
}

void VRQVirtualMouseCursor::moveCursorWithDiffX(double dx, double dy)
{
    move({m_lastFingerX + dx, m_lastFingerY + dy});
}

// MARK: - Grid

vrq::Size VRQVirtualMouseCursor::parentSize() const
{
    const View* parent = superview();
    return parent ? parent->bounds().size : vrq::Size{};
}

std::optional<double> VRQVirtualMouseCursor::convertX(double value) const
{
    return toGrid(value, parentSize().width);
}

std::optional<double> VRQVirtualMouseCursor::convertY(double value) const
{
    return toGrid(value, parentSize().height);
}

void VRQVirtualMouseCursor::sendMoveMessageX(double x, double y)
{
    if (auto target = controller())
        target->mouseMoveTo(std::clamp(x, kMoveMargin, kGridSize - kMoveMargin), std::clamp(y, kMoveMargin, kGridSize - kMoveMargin));
}

void VRQVirtualMouseCursor::sendButton(bool isDown)
{
    if (auto target = controller())
        target->clickMouseIsLeft(m_sendLeftClick, isDown);
}

void VRQVirtualMouseCursor::placeCursor(vrq::Point origin)
{
    vrq::Rect cursor = m_cursorView->frame();
    cursor.origin = origin;
    m_cursorView->setFrame(cursor);
}

vrq::Point VRQVirtualMouseCursor::locationInParent(const vrq::Touch& touch) const
{
    return touch.locationInView(superview());
}

// MARK: - Touches

void VRQVirtualMouseCursor::touchesBegan(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesBegan(touches, event);
    const auto& all = event.allTouches();
    const auto began = std::find_if(all.begin(), all.end(), [](const auto& t) { return t->phase() == vrq::TouchPhase::Began; });
    if (began == all.end())
        return;
    m_validTouch = *began;
    pressDown(locationInParent(**began));
}

void VRQVirtualMouseCursor::touchesMoved(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesMoved(touches, event);
    const auto valid = m_validTouch.lock();
    if (valid && valid->phase() == vrq::TouchPhase::Moved)
        move(locationInParent(*valid));
}

// Every lifted touch presses up, the followed one or not.
void VRQVirtualMouseCursor::touchesEnded(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesEnded(touches, event);
    for (const auto& touch : event.allTouches()) {
        if (touch->phase() == vrq::TouchPhase::Ended)
            pressUp(locationInParent(*touch));
    }
}

void VRQVirtualMouseCursor::touchesCancelled(const vrq::TouchSet& touches, const vrq::Event& event)
{
    View::touchesCancelled(touches, event);
    for (const auto& touch : event.allTouches()) {
        if (touch->phase() == vrq::TouchPhase::Cancelled)
            pressUp(locationInParent(*touch));
    }
}

void VRQVirtualMouseCursor::pressDown(vrq::Point point)
{
    if (!isFinite(point))
        return;
    if (isAbsolute()) {
        const auto x = convertX(point.x);
        const auto y = convertY(point.y);
        if (!x || !y)
            return;
        // The press goes where the finger is, without the margin of moves.
        if (auto target = controller())
            target->mouseMoveTo(*x, *y);
        sendButton(true);
        placeCursor(point);
        return;
    }
    m_lastFingerX = point.x;
    m_lastFingerY = point.y;
    if (sendsButtons())
        startLongClickTimer();
}

void VRQVirtualMouseCursor::move(vrq::Point point)
{
    if (!isFinite(point))
        return;
    if (isAbsolute()) {
        const auto x = convertX(point.x);
        const auto y = convertY(point.y);
        if (!x || !y)
            return;
        sendMoveMessageX(*x, *y);
        placeCursor(point);
        return;
    }
    const double dx = (point.x - m_lastFingerX) * m_sensitivity;
    const double dy = (point.y - m_lastFingerY) * m_sensitivity;
    const auto gx = convertX(dx);
    const auto gy = convertY(dy);
    // Less than a grid unit either way: nothing yet, and the motion is kept.
    if (!gx || !gy || (std::fabs(*gx) < 1 && std::fabs(*gy) < 1))
        return;
    m_lastFingerX = point.x;
    m_lastFingerY = point.y;
    if (m_fpsControlModel) {
        if (auto target = controller())
            target->mouseDeltaMove(*gx, *gy);
        return;
    }
    const vrq::Size parent = parentSize();
    const vrq::Point cursor{std::clamp(m_cursorView->vrq_left() + dx, 1.0, std::max(1.0, parent.width - 1)),
                            std::clamp(m_cursorView->vrq_top() + dy, 1.0, std::max(1.0, parent.height - 1))};
    placeCursor(cursor);
    if (const auto x = convertX(cursor.x), y = convertY(cursor.y); x && y)
        sendMoveMessageX(*x, *y);
    if (m_touchMode == Touchpad) {
        m_hasMoved = true;
        cancelLongClickTimer();
    }
}

void VRQVirtualMouseCursor::pressUp(vrq::Point)
{
    if (!sendsButtons())
        return;
    if (m_touchMode == Absolute) {
        sendButton(false);
        return;
    }
    if (m_touchMode != Touchpad)
        return;
    cancelLongClickTimer();
    if (m_isLongClick) {
        sendButton(false); // the end of a press-and-drag
    } else if (!m_hasMoved) {
        sendButton(true); // a tap: a whole click
        sendButton(false);
    }
}

// MARK: - Long press

void VRQVirtualMouseCursor::startLongClickTimer()
{
    cancelLongClickTimer();
    m_isLongClick = false;
    m_hasMoved = false;
    m_longClickTimer = vrq::Timer::onMain(kLongPress, false, [weak = weak_from_this()] {
        if (auto self = std::static_pointer_cast<VRQVirtualMouseCursor>(weak.lock()))
            self->longClick();
    });
}

void VRQVirtualMouseCursor::cancelLongClickTimer()
{
    if (m_longClickTimer) {
        m_longClickTimer->cancel();
        m_longClickTimer.reset();
    }
}

void VRQVirtualMouseCursor::longClick()
{
    m_longClickTimer.reset();
    m_isLongClick = true;
    sendButton(true);
}
