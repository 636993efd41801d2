#pragma once

#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/Touch.h"
#include "vrq/platform/views/View.h"

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace vrq {

// The root of a view tree, as big as the host's screen area. The host feeds
// it raw pointer and finger input in the window's coordinates; the window
// turns that into touches and delivers them as UIKit does:
// - a new touch is hit-tested and belongs to that view until it lifts;
// - a view without multiple touch gets only its first touch: later ones
//   hit-tested to it while it has one are not delivered to it;
// - the gesture recognisers of the hit view and of its ancestors see every
//   touch hit-tested to it, whether the view gets it or not; a recogniser that recognises cancels the touches it
//   tracks in the view, unless it lets them through;
// - a touch whose view is gone is dropped without delivery.
// Numbers that are not finite are ignored. Main thread only.
class Window : public View {
public:
    explicit Window(Rect frame = {});

    // A finger (identified by the host's id) went down, moved, lifted, or
    // the system took it away. Unknown ids on move, lift and cancel are ignored.
    void touchDown(std::uint64_t id, Point location, double timestamp);
    void touchMove(std::uint64_t id, Point location, double timestamp);
    void touchUp(std::uint64_t id, Point location, double timestamp);
    void touchCancel(std::uint64_t id, double timestamp);
    // Every live touch cancelled (the window lost focus, say).
    void cancelAllTouches(double timestamp);

    std::size_t activeTouchCount() const { return m_touches.size(); }

private:
    // Where a live touch goes.
    struct TouchRoute {
        bool hasView = false;   // it was hit-tested to a view at its press
        std::weak_ptr<View> hitView; // that view, also when it does not get the touch
        bool toView = false;    // its view still gets it (no recogniser took it)
        bool viewBegan = false; // its view has seen it begin
        // The recognisers of its view and of the view's ancestors at its press.
        std::vector<std::weak_ptr<GestureRecognizer>> recognizers;
    };

    void beginTouch(std::uint64_t id, Point location, double timestamp);
    void changeTouch(std::uint64_t id, TouchPhase phase, Point location, double timestamp);
    // Delivers touches that all changed to one phase, then forgets them if they lifted.
    void deliver(const TouchSet& touches, TouchPhase phase, double timestamp);
    void deliverToRecognizers(const TouchSet& touches, TouchPhase phase, const Event& event);
    void deliverToViews(const TouchSet& touches, TouchPhase phase, const Event& event);
    void cancelInViews(const TouchSet& touches, const Event& event);
    void dropTouchesWithoutView();
    bool viewHasTouch(const View* view) const;
    TouchRoute* routeOf(const Touch& touch);
    Event makeEvent(double timestamp) const;

    std::map<std::uint64_t, std::shared_ptr<Touch>> m_touches;
    std::map<std::uint64_t, TouchRoute> m_routes;
};

} // namespace vrq
