#pragma once

#include "vrq/platform/views/View.h"

namespace vrq {

// The touches on the screen when something changed, and when.
class Event {
public:
    Event(TouchSet allTouches, double timestamp)
        : m_allTouches(std::move(allTouches))
        , m_timestamp(timestamp)
    {
    }
    const TouchSet& allTouches() const { return m_allTouches; }
    // Those delivered to a view.
    TouchSet touchesForView(const View* view) const;
    double timestamp() const { return m_timestamp; }

private:
    TouchSet m_allTouches;
    double m_timestamp;
};

} // namespace vrq
