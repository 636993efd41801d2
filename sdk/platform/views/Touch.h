#pragma once

#include "vrq/platform/views/Geometry.h"

#include <cstdint>
#include <memory>

namespace vrq {

class View;

enum class TouchPhase : int { Began = 0, Moved = 1, Stationary = 2, Ended = 3, Cancelled = 4 };

// One finger (or pointer) on the screen, from its press to its lift. The
// window makes it, updates it and keeps it for the finger's life: the same
// object stands for the finger in every event. Main thread only.
class Touch {
public:
    Touch(std::uint64_t identity, Point locationInWindow, double timestamp);

    std::uint64_t identity() const { return m_identity; }
    TouchPhase phase() const { return m_phase; }
    // Seconds, as the host gave them.
    double timestamp() const { return m_timestamp; }
    // The view the touch was delivered to (hit-tested at its press); null
    // once that view is gone.
    std::shared_ptr<View> view() const { return m_view.lock(); }
    std::weak_ptr<View> weakView() const { return m_view; }
    // The touch's location, and its location before the last move, in a
    // view's coordinates (null: the window's).
    Point locationInView(const View* view) const;
    Point previousLocationInView(const View* view) const;
    Point locationInWindow() const { return m_location; }

    // Set by the window as the finger moves.
    void update(TouchPhase phase, Point locationInWindow, double timestamp);
    void setView(const std::shared_ptr<View>& view) { m_view = view; }

private:
    std::uint64_t m_identity;
    TouchPhase m_phase = TouchPhase::Began;
    Point m_location;
    Point m_previousLocation;
    double m_timestamp;
    std::weak_ptr<View> m_view;
};

} // namespace vrq
