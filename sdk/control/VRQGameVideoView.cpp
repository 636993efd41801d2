#include "vrq/control/VRQGameVideoView.h"

#include "vrq/platform/views/PanGestureRecognizer.h"
#include "vrq/platform/views/PinchGestureRecognizer.h"

#include <cmath>

using vrq::GestureState;

VRQGameVideoView::VRQGameVideoView(vrq::Rect frame)
    : VideoView(frame)
{
}

void VRQGameVideoView::setEnablePinch(bool enable)
{
    if (enable == m_enablePinch)
        return;
    m_enablePinch = enable;
    if (!enable) {
        for (const auto& recognizer : std::vector(gestureRecognizers()))
            removeGestureRecognizer(recognizer);
        return;
    }
    // The actions hold the view weakly: the view holds its recognisers.
    auto pinch = std::make_shared<vrq::PinchGestureRecognizer>([weak = weak_from_this()](vrq::GestureRecognizer& recognizer) {
        if (auto self = std::static_pointer_cast<VRQGameVideoView>(weak.lock()))
            self->pinchView(static_cast<vrq::PinchGestureRecognizer&>(recognizer));
    });
    auto pan = std::make_shared<vrq::PanGestureRecognizer>([weak = weak_from_this()](vrq::GestureRecognizer& recognizer) {
        if (auto self = std::static_pointer_cast<VRQGameVideoView>(weak.lock()))
            self->onButtionMoved(static_cast<vrq::PanGestureRecognizer&>(recognizer));
    });
    pan->setMinimumNumberOfTouches(2);
    pan->setMaximumNumberOfTouches(2);
    addGestureRecognizer(pinch);
    addGestureRecognizer(pan);
}

void VRQGameVideoView::resetVideoViewFrame()
{
    setTransform(vrq::AffineTransform::identity());
    m_scaleValue = 1.0;
}

// The transform follows the gesture's own factor while the tracked zoom
// stops at 3: the two are kept apart on purpose.
void VRQGameVideoView::pinchView(vrq::PinchGestureRecognizer& recognizer)
{
    double scale = recognizer.scale();
    if (scale > 1 && m_scaleValue * scale > kMaxScale)
        scale = kMaxScale / m_scaleValue;
    if (std::fabs(scale - 1) < 0.01)
        return; // the recogniser's scale is not reset, so small changes add up
    if (m_scaleValue * scale < 1) {
        resetVideoViewFrame();
        return;
    }
    const GestureState state = recognizer.state();
    if (state == GestureState::Began || state == GestureState::Changed) {
        const double factor = recognizer.scale();
        setTransform(transform().scaled(factor, factor));
        recognizer.setScale(1);
        m_scaleValue *= scale;
    }
    const vrq::Point correction = reachabilityCorrection();
    // Here a correction of more than one point moves the picture.
    if (std::fabs(correction.x) > 1 || std::fabs(correction.y) > 1)
        setTransform(transform().translated(correction.x, correction.y));
}

vrq::Point VRQGameVideoView::reachabilityCorrection() const
{
    const View* parent = superview();
    if (!parent)
        return {};
    const double width = parent->bounds().size.width;
    const double height = parent->bounds().size.height;
    const vrq::EdgeInsets& insets = m_moveInsets;
    vrq::Point d;
    if (vrq_left() > width - insets.right)
        d.x = (width - insets.right) - vrq_left();
    else if (vrq_left() + vrq_w() < insets.left)
        d.x = insets.left - (vrq_left() + vrq_w());
    if (vrq_top() > height - insets.bottom)
        d.y = (height - insets.bottom) - vrq_top();
    else if (vrq_top() + vrq_h() < insets.top)
        d.y = insets.top - (vrq_top() + vrq_h());
    return d;
}

void VRQGameVideoView::onButtionMoved(vrq::PanGestureRecognizer& recognizer)
{
    const View* parent = superview();
    const vrq::Point translation = recognizer.translationInView(parent);
    if (recognizer.state() == GestureState::Began) {
        m_pinchLastPoint = translation;
        return;
    }
    if (!parent)
        return;
    const double width = parent->bounds().size.width;
    const double height = parent->bounds().size.height;
    const vrq::EdgeInsets& insets = m_moveInsets;
    double dx = translation.x - m_pinchLastPoint.x;
    double dy = translation.y - m_pinchLastPoint.y;
    if (vrq_left() + vrq_w() + dx < insets.left)
        dx = insets.left - (vrq_left() + vrq_w());
    else if (vrq_left() + dx > width - insets.right)
        dx = (width - insets.right) - vrq_left();
    if (vrq_top() + vrq_h() + dy < insets.top)
        dy = insets.top - (vrq_top() + vrq_h());
    else if (vrq_top() + dy > height - insets.bottom)
        dy = (height - insets.bottom) - vrq_top();
    // At least a whole point (the pinch wants more than one): smaller steps
    // keep the old last point, so that they add up.
    if (std::fabs(dx) >= 1 || std::fabs(dy) >= 1) {
        setTransform(transform().translated(dx, dy));
        m_pinchLastPoint = translation;
    }
}
