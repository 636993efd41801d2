#pragma once

#include "vrq/platform/views/GestureRecognizer.h"

namespace vrq {

// Fingers moving together, between the minimum and maximum number of
// touches. translation is the centroid's travel since the gesture began, or
// since it was last set.
class PanGestureRecognizer : public GestureRecognizer {
public:
    using GestureRecognizer::GestureRecognizer;
    std::size_t minimumNumberOfTouches() const { return m_minimumTouches; }
    void setMinimumNumberOfTouches(std::size_t count) { m_minimumTouches = count; }
    std::size_t maximumNumberOfTouches() const { return m_maximumTouches; }
    void setMaximumNumberOfTouches(std::size_t count) { m_maximumTouches = count; }
    Point translationInView(const View* view) const;
    void setTranslation(Point translation, const View* view);

protected:
    void touchesChanged(TouchPhase phase) override;
    void reset() override;

private:
    bool inRange(std::size_t count) const
    {
        return count > 0 && count >= m_minimumTouches && count <= m_maximumTouches;
    }
    Point windowTranslation() const;
    void followFingers(TouchPhase phase);
    std::size_t m_minimumTouches = 1;
    std::size_t m_maximumTouches = 1000;
    Point m_start;       // the centroid when the gesture began, in the window
    Point m_translation; // set by setTranslation, in the window
    bool m_started = false;    // m_start is set: the number of touches is in range
    Point m_lastCentroid;      // of the touches that stayed after the last change, in the window
};

} // namespace vrq
