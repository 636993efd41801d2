#include "vrq/platform/views/PinchGestureRecognizer.h"

#include <cmath>

namespace vrq {

namespace {

// How far, in points, the fingers' distance changes before the pinch begins.
constexpr double kPinchSlop = 2.0;

double distanceBetween(const Touch& first, const Touch& second)
{
    const Point a = first.locationInWindow();
    const Point b = second.locationInWindow();
    return std::hypot(b.x - a.x, b.y - a.y);
}

} // namespace

double PinchGestureRecognizer::fingerDistance() const
{
    const TouchSet& touches = trackedTouches();
    return touches.size() < 2 ? 0 : distanceBetween(*touches[0], *touches[1]);
}

double PinchGestureRecognizer::scale() const
{
    if (m_referenceDistance <= 0 || trackedTouches().size() < 2)
        return m_referenceScale;
    return m_referenceScale * fingerDistance() / m_referenceDistance;
}

void PinchGestureRecognizer::setScale(double scale)
{
    m_referenceScale = scale;
    m_referenceDistance = fingerDistance();
}

void PinchGestureRecognizer::reset()
{
    m_referenceDistance = 0;
    m_referenceScale = 1.0;
}

void PinchGestureRecognizer::touchesChanged(TouchPhase phase)
{
    switch (state()) {
    case GestureState::Possible:
        followFingers(phase);
        break;
    case GestureState::Began:
    case GestureState::Changed:
        if (phase == TouchPhase::Moved)
            setState(GestureState::Changed);
        else if (phase == TouchPhase::Ended)
            setState(GestureState::Ended);
        else if (phase == TouchPhase::Cancelled)
            setState(GestureState::Cancelled);
        break;
    default:
        break;
    }
}

// Before it begins: the reference is the distance when the second finger
// came down (or when one of three lifted), and the pinch begins once the
// fingers have moved apart or together by more than the slop.
void PinchGestureRecognizer::followFingers(TouchPhase phase)
{
    const TouchSet remaining = remainingTouches();
    if (phase != TouchPhase::Moved) {
        m_referenceDistance = remaining.size() == 2 ? distanceBetween(*remaining[0], *remaining[1]) : 0;
        return;
    }
    if (trackedTouches().size() != 2)
        return;
    const double distance = fingerDistance();
    if (std::fabs(distance - m_referenceDistance) <= kPinchSlop)
        return;
    // Fingers that came down on the same point measure from where the pinch began.
    if (m_referenceDistance <= 0)
        m_referenceDistance = distance;
    setState(GestureState::Began);
}

} // namespace vrq
