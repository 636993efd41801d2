#include "vrq/platform/views/Window.h"

#include "vrq/platform/views/GestureRecognizer.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vrq {

namespace {

bool isFinite(Point point)
{
    return std::isfinite(point.x) && std::isfinite(point.y);
}

template<typename Target>
void callPhase(Target& target, TouchPhase phase, const TouchSet& touches, const Event& event)
{
    switch (phase) {
    case TouchPhase::Began:
        target.touchesBegan(touches, event);
        break;
    case TouchPhase::Moved:
    case TouchPhase::Stationary:
        target.touchesMoved(touches, event);
        break;
    case TouchPhase::Ended:
        target.touchesEnded(touches, event);
        break;
    case TouchPhase::Cancelled:
        target.touchesCancelled(touches, event);
        break;
    }
}

// Touches grouped by where they go, in the order the targets first appear.
template<typename Target>
using Deliveries = std::vector<std::pair<std::shared_ptr<Target>, TouchSet>>;

template<typename Target>
void addDelivery(Deliveries<Target>& deliveries, const std::shared_ptr<Target>& target,
                 const std::shared_ptr<Touch>& touch)
{
    const auto it =
        std::find_if(deliveries.begin(), deliveries.end(), [&target](const auto& d) { return d.first == target; });
    if (it == deliveries.end())
        deliveries.push_back({target, {touch}});
    else
        it->second.push_back(touch);
}

} // namespace

Window::Window(Rect frame)
    : View(frame)
{
}

void Window::touchDown(std::uint64_t id, Point location, double timestamp)
{
    if (!isFinite(location) || !std::isfinite(timestamp))
        return;
    dropTouchesWithoutView();
    // A press for a finger that is still down: the host lost its lift.
    if (const auto it = m_touches.find(id); it != m_touches.end())
        changeTouch(id, TouchPhase::Cancelled, it->second->locationInWindow(), timestamp);
    beginTouch(id, location, timestamp);
}

void Window::touchMove(std::uint64_t id, Point location, double timestamp)
{
    if (!isFinite(location) || !std::isfinite(timestamp))
        return;
    dropTouchesWithoutView();
    changeTouch(id, TouchPhase::Moved, location, timestamp);
}

void Window::touchUp(std::uint64_t id, Point location, double timestamp)
{
    if (!isFinite(location) || !std::isfinite(timestamp))
        return;
    dropTouchesWithoutView();
    changeTouch(id, TouchPhase::Ended, location, timestamp);
}

void Window::touchCancel(std::uint64_t id, double timestamp)
{
    if (!std::isfinite(timestamp))
        return;
    dropTouchesWithoutView();
    if (const auto it = m_touches.find(id); it != m_touches.end())
        changeTouch(id, TouchPhase::Cancelled, it->second->locationInWindow(), timestamp);
}

void Window::cancelAllTouches(double timestamp)
{
    if (!std::isfinite(timestamp))
        return;
    dropTouchesWithoutView();
    TouchSet touches;
    for (const auto& [id, touch] : m_touches) {
        touch->update(TouchPhase::Cancelled, touch->locationInWindow(), timestamp);
        touches.push_back(touch);
    }
    if (!touches.empty())
        deliver(touches, TouchPhase::Cancelled, timestamp);
}

// MARK: - Routing

void Window::beginTouch(std::uint64_t id, Point location, double timestamp)
{
    View* hit = hitTest(location);
    const std::shared_ptr<View> view = hit ? hit->weak_from_this().lock() : nullptr;
    auto touch = std::make_shared<Touch>(id, location, timestamp);
    TouchRoute route;
    // The recognisers of the view and of its ancestors see the touch; the
    // view itself only when it takes more than one or has none yet. A touch
    // no view takes is followed until it lifts but goes nowhere.
    if (view) {
        route.hasView = true;
        route.hitView = view;
        for (const View* v = view.get(); v; v = v->superview()) {
            for (const auto& recognizer : v->gestureRecognizers())
                route.recognizers.push_back(recognizer);
        }
        if (view->isMultipleTouchEnabled() || !viewHasTouch(view.get())) {
            touch->setView(view);
            route.toView = true;
        }
    }
    m_touches[id] = touch;
    m_routes[id] = std::move(route);
    deliver({touch}, TouchPhase::Began, timestamp);
}

void Window::changeTouch(std::uint64_t id, TouchPhase phase, Point location, double timestamp)
{
    const auto it = m_touches.find(id);
    if (it == m_touches.end())
        return;
    const std::shared_ptr<Touch> touch = it->second;
    touch->update(phase, location, timestamp);
    deliver({touch}, phase, timestamp);
}

void Window::deliver(const TouchSet& touches, TouchPhase phase, double timestamp)
{
    for (const auto& [id, touch] : m_touches) {
        if (std::find(touches.begin(), touches.end(), touch) == touches.end())
            touch->update(TouchPhase::Stationary, touch->locationInWindow(), touch->timestamp());
    }
    const Event event = makeEvent(timestamp);
    // Recognisers first: one that recognises takes its touches from the views.
    deliverToRecognizers(touches, phase, event);
    deliverToViews(touches, phase, event);
    if (phase != TouchPhase::Ended && phase != TouchPhase::Cancelled)
        return;
    for (const auto& touch : touches) {
        const auto it = m_touches.find(touch->identity());
        if (it != m_touches.end() && it->second == touch) {
            m_touches.erase(it);
            m_routes.erase(touch->identity());
        }
    }
}

void Window::deliverToRecognizers(const TouchSet& touches, TouchPhase phase, const Event& event)
{
    Deliveries<GestureRecognizer> deliveries;
    for (const auto& touch : touches) {
        const TouchRoute* route = routeOf(*touch);
        if (!route)
            continue;
        for (const auto& weak : route->recognizers) {
            const auto recognizer = weak.lock();
            if (recognizer && recognizer->view() && recognizer->isEnabled())
                addDelivery(deliveries, recognizer, touch);
        }
    }
    for (const auto& [recognizer, mine] : deliveries) {
        callPhase(*recognizer, phase, mine, event);
        const TouchSet taken = recognizer->takeTouchesToCancel();
        if (!taken.empty())
            cancelInViews(taken, event);
    }
}

void Window::deliverToViews(const TouchSet& touches, TouchPhase phase, const Event& event)
{
    Deliveries<View> deliveries;
    for (const auto& touch : touches) {
        TouchRoute* route = routeOf(*touch);
        const std::shared_ptr<View> view = touch->view();
        if (!route || !route->toView || !view)
            continue;
        if (phase == TouchPhase::Began)
            route->viewBegan = true;
        addDelivery(deliveries, view, touch);
    }
    for (const auto& [view, mine] : deliveries)
        callPhase(*view, phase, mine, event);
}

// The views see these touches cancelled, once; the recognisers go on
// following them.
void Window::cancelInViews(const TouchSet& touches, const Event& event)
{
    Deliveries<View> deliveries;
    for (const auto& touch : touches) {
        TouchRoute* route = routeOf(*touch);
        if (!route || !route->toView)
            continue;
        route->toView = false;
        const std::shared_ptr<View> view = touch->view();
        if (route->viewBegan && view)
            addDelivery(deliveries, view, touch);
    }
    for (const auto& [view, mine] : deliveries) {
        std::vector<TouchPhase> phases;
        for (const auto& touch : mine) {
            phases.push_back(touch->phase());
            touch->update(TouchPhase::Cancelled, touch->locationInWindow(), touch->timestamp());
        }
        view->touchesCancelled(mine, event);
        for (std::size_t i = 0; i < mine.size(); ++i)
            mine[i]->update(phases[i], mine[i]->locationInWindow(), mine[i]->timestamp());
    }
}

void Window::dropTouchesWithoutView()
{
    std::vector<std::pair<std::shared_ptr<Touch>, std::vector<std::weak_ptr<GestureRecognizer>>>> gone;
    for (auto it = m_touches.begin(); it != m_touches.end();) {
        const auto route = m_routes.find(it->first);
        if (route != m_routes.end() && route->second.hasView && route->second.hitView.expired()) {
            gone.emplace_back(it->second, std::move(route->second.recognizers));
            m_routes.erase(route);
            it = m_touches.erase(it);
        } else {
            ++it;
        }
    }
    for (const auto& [touch, recognizers] : gone) {
        for (const auto& weak : recognizers) {
            if (const auto recognizer = weak.lock())
                recognizer->forgetTouches({touch});
        }
    }
}

bool Window::viewHasTouch(const View* view) const
{
    return std::any_of(m_touches.begin(), m_touches.end(),
                       [view](const auto& entry) { return entry.second->view().get() == view; });
}

Window::TouchRoute* Window::routeOf(const Touch& touch)
{
    const auto it = m_touches.find(touch.identity());
    if (it == m_touches.end() || it->second.get() != &touch)
        return nullptr;
    const auto route = m_routes.find(touch.identity());
    return route == m_routes.end() ? nullptr : &route->second;
}

Event Window::makeEvent(double timestamp) const
{
    TouchSet all;
    all.reserve(m_touches.size());
    for (const auto& [id, touch] : m_touches)
        all.push_back(touch);
    return Event(std::move(all), timestamp);
}

} // namespace vrq
