#include "vrq/platform/views/PanGestureRecognizer.h"

#include "vrq/platform/views/View.h"

#include <cmath>

namespace vrq {

namespace {

// How far, in points, the fingers move before the pan begins.
constexpr double kPanSlop = 10.0;

Point plus(Point a, Point b)
{
    return {a.x + b.x, a.y + b.y};
}

Point minus(Point a, Point b)
{
    return {a.x - b.x, a.y - b.y};
}

} // namespace

Point PanGestureRecognizer::windowTranslation() const
{
    if (!m_started)
        return m_translation;
    return plus(minus(centroid(trackedTouches()), m_start), m_translation);
}

Point PanGestureRecognizer::translationInView(const View* view) const
{
    const Point travel = windowTranslation();
    if (!view)
        return travel;
    // A distance, so only the view's scale and rotation apply, not its position.
    const Point to = centroid(trackedTouches());
    return minus(view->convertPointFromView(to, nullptr), view->convertPointFromView(minus(to, travel), nullptr));
}

void PanGestureRecognizer::setTranslation(Point translation, const View* view)
{
    // A distance in the view's units, as one in the window's.
    const Point travel =
        view ? minus(view->convertPointToView(translation, nullptr), view->convertPointToView({}, nullptr)) : translation;
    m_translation = m_started ? minus(travel, minus(centroid(trackedTouches()), m_start)) : travel;
}

void PanGestureRecognizer::reset()
{
    m_start = {};
    m_translation = {};
    m_started = false;
    m_lastCentroid = {};
}

void PanGestureRecognizer::touchesChanged(TouchPhase phase)
{
    const std::size_t count = remainingTouches().size();
    switch (state()) {
    case GestureState::Possible:
        followFingers(phase);
        break;
    case GestureState::Began:
    case GestureState::Changed:
        followFingers(phase);
        if (phase == TouchPhase::Cancelled)
            setState(GestureState::Cancelled);
        else if (!inRange(count))
            setState(GestureState::Ended);
        else if (phase == TouchPhase::Moved)
            setState(GestureState::Changed);
        break;
    default:
        return;
    }
    // Fingers that lift while enough stay leave the translation where it was.
    const TouchSet remaining = remainingTouches();
    const bool running = state() == GestureState::Possible || state() == GestureState::Began
                         || state() == GestureState::Changed;
    if (running && m_started && inRange(count) && count < trackedTouches().size())
        m_start = plus(m_start, minus(centroid(remaining), centroid(trackedTouches())));
    m_lastCentroid = centroid(remaining);
}

// Keeps the start where the travel counts from: set when the number of
// touches enters the range, moved when a finger joins so that the centroid's
// jump is not travel, and cleared when the number leaves the range before
// the pan began.
void PanGestureRecognizer::followFingers(TouchPhase phase)
{
    const std::size_t count = remainingTouches().size();
    if (!inRange(count)) {
        if (state() == GestureState::Possible)
            m_started = false;
        return;
    }
    if (!m_started) {
        m_started = true;
        m_start = centroid(remainingTouches());
        return;
    }
    if (phase == TouchPhase::Began)
        m_start = plus(m_start, minus(centroid(trackedTouches()), m_lastCentroid));
    if (state() != GestureState::Possible || phase != TouchPhase::Moved)
        return;
    const Point travel = minus(centroid(trackedTouches()), m_start);
    if (std::hypot(travel.x, travel.y) > kPanSlop)
        setState(GestureState::Began);
}

} // namespace vrq
