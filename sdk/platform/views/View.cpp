#include "vrq/platform/views/View.h"

#include <algorithm>

namespace vrq {

View::View(Rect frame)
    : m_frame(frame)
{
}

void View::addSubview(const std::shared_ptr<View>& view)
{
    if (!view || view.get() == this)
        return;
    view->removeFromSuperview();
    view->m_superview = this;
    m_subviews.push_back(view);
}

void View::removeFromSuperview()
{
    View* parent = m_superview;
    if (!parent)
        return;
    m_superview = nullptr;
    auto& siblings = parent->m_subviews;
    siblings.erase(std::remove_if(siblings.begin(), siblings.end(), [this](const auto& v) { return v.get() == this; }),
                   siblings.end());
}

void View::vrq_setX(double x)
{
    Rect f = m_frame;
    f.origin.x = x;
    setFrame(f);
}

void View::vrq_setY(double y)
{
    Rect f = m_frame;
    f.origin.y = y;
    setFrame(f);
}

void View::vrq_setW(double width)
{
    Rect f = m_frame;
    f.size.width = width;
    setFrame(f);
}

void View::vrq_setH(double height)
{
    Rect f = m_frame;
    f.size.height = height;
    setFrame(f);
}

void View::vrq_setCenter(Point center)
{
    Rect f = m_frame;
    f.origin = {center.x - f.size.width / 2, center.y - f.size.height / 2};
    setFrame(f);
}

} // namespace vrq
