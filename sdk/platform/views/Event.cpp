#include "vrq/platform/views/Event.h"

#include "vrq/platform/views/Touch.h"

namespace vrq {

TouchSet Event::touchesForView(const View* view) const
{
    TouchSet touches;
    if (!view)
        return touches;
    for (const auto& touch : m_allTouches) {
        if (touch->view().get() == view)
            touches.push_back(touch);
    }
    return touches;
}

} // namespace vrq
