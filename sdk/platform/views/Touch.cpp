#include "vrq/platform/views/Touch.h"

#include "vrq/platform/views/View.h"

namespace vrq {

Touch::Touch(std::uint64_t identity, Point locationInWindow, double timestamp)
    : m_identity(identity)
    , m_location(locationInWindow)
    , m_previousLocation(locationInWindow)
    , m_timestamp(timestamp)
{
}

Point Touch::locationInView(const View* view) const
{
    return view ? view->convertPointFromView(m_location, nullptr) : m_location;
}

Point Touch::previousLocationInView(const View* view) const
{
    return view ? view->convertPointFromView(m_previousLocation, nullptr) : m_previousLocation;
}

void Touch::update(TouchPhase phase, Point locationInWindow, double timestamp)
{
    if (!(locationInWindow == m_location)) {
        m_previousLocation = m_location;
        m_location = locationInWindow;
    }
    m_phase = phase;
    m_timestamp = timestamp;
}

} // namespace vrq
