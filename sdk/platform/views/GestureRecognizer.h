#pragma once

#include "vrq/platform/views/Event.h"
#include "vrq/platform/views/Touch.h"

#include <functional>
#include <memory>

namespace vrq {

class View;

enum class GestureState : int { Possible = 0, Began = 1, Changed = 2, Ended = 3, Cancelled = 4, Failed = 5 };

// Recognises a gesture in the touches of its view's subtree and calls its
// action on each change of state while the gesture runs (began, changed,
// ended, cancelled). Main thread only; the view holds it.
class GestureRecognizer : public std::enable_shared_from_this<GestureRecognizer> {
public:
    using Action = std::function<void(GestureRecognizer& recognizer)>;

    explicit GestureRecognizer(Action action);
    virtual ~GestureRecognizer() = default;

    GestureState state() const { return m_state; }
    View* view() const { return m_view; }
    std::size_t numberOfTouches() const { return m_touches.size(); }
    // The centroid of its touches in a view's coordinates (null: the window's).
    Point locationInView(const View* view) const;
    bool cancelsTouchesInView() const { return m_cancelsTouchesInView; }
    void setCancelsTouchesInView(bool cancels) { m_cancelsTouchesInView = cancels; }
    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled);

    // Called by the view and the window.
    void attach(View* view) { m_view = view; }
    void touchesBegan(const TouchSet& touches, const Event& event);
    void touchesMoved(const TouchSet& touches, const Event& event);
    void touchesEnded(const TouchSet& touches, const Event& event);
    void touchesCancelled(const TouchSet& touches, const Event& event);
    const TouchSet& trackedTouches() const { return m_touches; }
    // Stops tracking touches that can no longer be delivered (their view is
    // gone, or this recogniser left its view): a running gesture is
    // cancelled, one not yet recognised fails.
    void forgetTouches(const TouchSet& touches);
    // The touches the gesture took from their views when it was recognised,
    // once: the window cancels them there.
    TouchSet takeTouchesToCancel();

protected:
    // What a kind of gesture does with the touches it tracks, after they
    // were updated: it moves the state with setState.
    virtual void touchesChanged(TouchPhase phase) = 0;
    // Back to possible once a gesture ended, failed or was cancelled and its touches lifted.
    virtual void reset() {}
    void setState(GestureState state);
    // The tracked touches that stay once this change is over: during an
    // end or a cancel, those not lifting.
    TouchSet remainingTouches() const;
    // The centroid of some touches, in the window.
    static Point centroid(const TouchSet& touches);

private:
    bool isRunning() const { return m_state == GestureState::Began || m_state == GestureState::Changed; }
    bool isFinished() const
    {
        return m_state == GestureState::Ended || m_state == GestureState::Cancelled || m_state == GestureState::Failed;
    }
    TouchSet trackedAmong(const TouchSet& touches) const;
    void untrack(const TouchSet& touches);
    void finishTouches(const TouchSet& touches, TouchPhase phase);
    void resetWhenLifted();

    Action m_action;
    View* m_view = nullptr;
    GestureState m_state = GestureState::Possible;
    TouchSet m_touches;
    TouchSet m_leaving;         // the touches ending or cancelled in the change under way
    TouchSet m_touchesToCancel; // taken from their views at recognition, until the window asks
    bool m_cancelsTouchesInView = true;
    bool m_enabled = true;
};

} // namespace vrq
