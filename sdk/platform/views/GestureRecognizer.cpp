#include "vrq/platform/views/GestureRecognizer.h"

#include "vrq/platform/views/View.h"

#include <algorithm>
#include <utility>

namespace vrq {

namespace {

bool contains(const TouchSet& touches, const std::shared_ptr<Touch>& touch)
{
    return std::find(touches.begin(), touches.end(), touch) != touches.end();
}

} // namespace

GestureRecognizer::GestureRecognizer(Action action)
    : m_action(std::move(action))
{
}

Point GestureRecognizer::centroid(const TouchSet& touches)
{
    if (touches.empty())
        return {};
    Point sum;
    for (const auto& touch : touches) {
        sum.x += touch->locationInWindow().x;
        sum.y += touch->locationInWindow().y;
    }
    const auto count = static_cast<double>(touches.size());
    return {sum.x / count, sum.y / count};
}

Point GestureRecognizer::locationInView(const View* view) const
{
    const Point point = centroid(m_touches);
    return view ? view->convertPointFromView(point, nullptr) : point;
}

void GestureRecognizer::setEnabled(bool enabled)
{
    if (enabled == m_enabled)
        return;
    m_enabled = enabled;
    if (enabled)
        return;
    if (isRunning())
        setState(GestureState::Cancelled);
    m_touches.clear();
    m_leaving.clear();
    m_touchesToCancel.clear();
    m_state = GestureState::Possible;
    reset();
}

// MARK: - Touches

void GestureRecognizer::touchesBegan(const TouchSet& touches, const Event&)
{
    if (!m_enabled)
        return;
    bool added = false;
    for (const auto& touch : touches) {
        if (touch && !contains(m_touches, touch)) {
            m_touches.push_back(touch);
            added = true;
        }
    }
    // A gesture that is over waits for its fingers to lift before it looks again.
    if (added && !isFinished())
        touchesChanged(TouchPhase::Began);
}

void GestureRecognizer::touchesMoved(const TouchSet& touches, const Event&)
{
    if (m_enabled && !trackedAmong(touches).empty() && !isFinished())
        touchesChanged(TouchPhase::Moved);
}

void GestureRecognizer::touchesEnded(const TouchSet& touches, const Event&)
{
    finishTouches(touches, TouchPhase::Ended);
}

void GestureRecognizer::touchesCancelled(const TouchSet& touches, const Event&)
{
    finishTouches(touches, TouchPhase::Cancelled);
}

void GestureRecognizer::finishTouches(const TouchSet& touches, TouchPhase phase)
{
    const TouchSet known = trackedAmong(touches);
    if (!m_enabled || known.empty())
        return;
    m_leaving = known;
    if (!isFinished())
        touchesChanged(phase);
    m_leaving.clear();
    untrack(known);
    resetWhenLifted();
}

void GestureRecognizer::forgetTouches(const TouchSet& touches)
{
    const TouchSet known = trackedAmong(touches);
    if (known.empty())
        return;
    untrack(known);
    if (isRunning())
        setState(GestureState::Cancelled);
    else if (m_state == GestureState::Possible)
        m_state = GestureState::Failed;
    resetWhenLifted();
}

TouchSet GestureRecognizer::takeTouchesToCancel()
{
    return std::exchange(m_touchesToCancel, {});
}

// MARK: - State

void GestureRecognizer::setState(GestureState state)
{
    const GestureState previous = m_state;
    m_state = state;
    const bool recognised = state == GestureState::Began || state == GestureState::Ended;
    if (previous == GestureState::Possible && recognised && m_cancelsTouchesInView)
        m_touchesToCancel = m_touches;
    if (state == GestureState::Possible || state == GestureState::Failed || !m_action)
        return;
    // The action may remove this recogniser from its view, which may hold the last reference.
    const auto keepAlive = weak_from_this().lock();
    m_action(*this);
}

TouchSet GestureRecognizer::remainingTouches() const
{
    TouchSet remaining;
    for (const auto& touch : m_touches) {
        if (!contains(m_leaving, touch))
            remaining.push_back(touch);
    }
    return remaining;
}

TouchSet GestureRecognizer::trackedAmong(const TouchSet& touches) const
{
    TouchSet known;
    for (const auto& touch : touches) {
        if (contains(m_touches, touch) && !contains(known, touch))
            known.push_back(touch);
    }
    return known;
}

void GestureRecognizer::untrack(const TouchSet& touches)
{
    std::erase_if(m_touches, [&touches](const auto& touch) { return contains(touches, touch); });
}

void GestureRecognizer::resetWhenLifted()
{
    if (!m_touches.empty())
        return;
    // A gesture cannot run on without fingers.
    if (isRunning())
        setState(GestureState::Cancelled);
    m_state = GestureState::Possible;
    reset();
}

} // namespace vrq
