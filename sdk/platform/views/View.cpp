#include "vrq/platform/views/View.h"

#include "vrq/platform/views/GestureRecognizer.h"
#include "vrq/platform/views/Window.h"

#include <algorithm>
#include <cmath>

namespace vrq {

namespace {

bool isFinite(Point point)
{
    return std::isfinite(point.x) && std::isfinite(point.y);
}

bool isFinite(Rect rect)
{
    return isFinite(rect.origin) && std::isfinite(rect.size.width) && std::isfinite(rect.size.height);
}

bool isFinite(const AffineTransform& t)
{
    return std::isfinite(t.a) && std::isfinite(t.b) && std::isfinite(t.c) && std::isfinite(t.d) && std::isfinite(t.tx)
           && std::isfinite(t.ty);
}

Point boundsCenter(Rect bounds)
{
    return {bounds.origin.x + bounds.size.width / 2, bounds.origin.y + bounds.size.height / 2};
}

} // namespace

View::View(Rect frame)
{
    if (!isFinite(frame))
        return;
    m_bounds.size = frame.size;
    m_center = boundsCenter(frame);
}

View::~View()
{
    for (const auto& subview : m_subviews)
        subview->m_superview = nullptr;
    for (const auto& recognizer : m_gestureRecognizers)
        recognizer->attach(nullptr);
}

// MARK: - Geometry

Rect View::frame() const
{
    const Size size = m_bounds.size;
    const Rect centred{{-size.width / 2, -size.height / 2}, size};
    Rect box = m_transform.apply(centred);
    box.origin.x += m_center.x;
    box.origin.y += m_center.y;
    return box;
}

void View::setFrame(Rect frame)
{
    if (!isFinite(frame) || frame == this->frame())
        return;
    const bool resized = !(frame.size == m_bounds.size);
    m_center = boundsCenter(frame);
    m_bounds.size = frame.size;
    if (resized)
        setNeedsLayout();
    setNeedsDisplay();
}

void View::setBounds(Rect bounds)
{
    if (!isFinite(bounds) || bounds == m_bounds)
        return;
    if (!(bounds.size == m_bounds.size))
        setNeedsLayout();
    m_bounds = bounds;
    setNeedsDisplay();
}

void View::setCenter(Point center)
{
    if (!isFinite(center) || center == m_center)
        return;
    m_center = center;
    setNeedsDisplay();
}

void View::setTransform(const AffineTransform& transform)
{
    if (!isFinite(transform) || transform == m_transform)
        return;
    m_transform = transform;
    setNeedsDisplay();
}

Point View::toSuperview(Point point) const
{
    const Point middle = boundsCenter(m_bounds);
    const Point moved = m_transform.apply(Point{point.x - middle.x, point.y - middle.y});
    return {m_center.x + moved.x, m_center.y + moved.y};
}

Point View::fromSuperview(Point point) const
{
    const Point middle = boundsCenter(m_bounds);
    const Point local = m_transform.inverted().apply(Point{point.x - m_center.x, point.y - m_center.y});
    return {local.x + middle.x, local.y + middle.y};
}

Point View::convertPointToView(Point point, const View* view) const
{
    for (const View* v = this; v->m_superview; v = v->m_superview)
        point = v->toSuperview(point);
    return view ? view->convertPointFromView(point, nullptr) : point;
}

Point View::convertPointFromView(Point point, const View* view) const
{
    if (view)
        point = view->convertPointToView(point, nullptr);
    std::vector<const View*> chain; // this view up to, not including, the root
    for (const View* v = this; v->m_superview; v = v->m_superview)
        chain.push_back(v);
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        point = (*it)->fromSuperview(point);
    return point;
}

// MARK: - Appearance

void View::setHidden(bool hidden)
{
    if (hidden == m_hidden)
        return;
    m_hidden = hidden;
    setNeedsDisplay();
}

void View::setAlpha(double alpha)
{
    if (std::isnan(alpha))
        return;
    alpha = std::clamp(alpha, 0.0, 1.0);
    if (alpha == m_alpha)
        return;
    m_alpha = alpha;
    setNeedsDisplay();
}

void View::setBackgroundColor(Color color)
{
    if (color == m_backgroundColor)
        return;
    m_backgroundColor = color;
    setNeedsDisplay();
}

// MARK: - The tree

void View::addSubview(const std::shared_ptr<View>& view)
{
    insertSubview(view, m_subviews.size());
}

void View::insertSubview(const std::shared_ptr<View>& view, std::size_t index)
{
    // A view cannot hold itself or one of its ancestors.
    if (!view || isDescendantOf(view.get()))
        return;
    const std::shared_ptr<View> keep = view; // the old superview may hold the only other reference
    keep->removeFromSuperview();
    index = std::min(index, m_subviews.size());
    m_subviews.insert(m_subviews.begin() + static_cast<std::ptrdiff_t>(index), keep);
    keep->m_superview = this;
    setNeedsLayout();
    keep->setNeedsDisplay();
    keep->didMoveToSuperview();
}

void View::removeFromSuperview()
{
    View* parent = m_superview;
    if (!parent)
        return;
    m_superview = nullptr;
    // The superview shows what was under this view again.
    parent->setNeedsDisplay();
    parent->setNeedsLayout();
    auto& siblings = parent->m_subviews;
    const auto it = std::find_if(siblings.begin(), siblings.end(), [this](const auto& v) { return v.get() == this; });
    if (it == siblings.end())
        return;
    const std::shared_ptr<View> keep = *it; // alive until this function returns
    siblings.erase(it);
    didMoveToSuperview();
}

Window* View::window() const
{
    for (const View* v = this; v; v = v->m_superview) {
        if (auto* window = dynamic_cast<const Window*>(v))
            return const_cast<Window*>(window);
    }
    return nullptr;
}

bool View::isDescendantOf(const View* view) const
{
    if (!view)
        return false;
    for (const View* v = this; v; v = v->m_superview) {
        if (v == view)
            return true;
    }
    return false;
}

// MARK: - Hit-testing

bool View::pointInside(Point point) const
{
    return rectContainsPoint(m_bounds, point);
}

View* View::hitTest(Point point)
{
    if (m_hidden || !m_userInteractionEnabled || m_alpha < 0.01 || !pointInside(point))
        return nullptr;
    for (std::size_t i = m_subviews.size(); i-- > 0;) {
        View* subview = m_subviews[i].get();
        if (View* hit = subview->hitTest(subview->fromSuperview(point)))
            return hit;
    }
    return this;
}

// MARK: - Touches

void View::touchesBegan(const TouchSet&, const Event&) {}
void View::touchesMoved(const TouchSet&, const Event&) {}
void View::touchesEnded(const TouchSet&, const Event&) {}
void View::touchesCancelled(const TouchSet&, const Event&) {}

void View::addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer)
{
    if (!recognizer || recognizer->view() == this)
        return;
    if (View* previous = recognizer->view())
        previous->removeGestureRecognizer(recognizer);
    m_gestureRecognizers.push_back(recognizer);
    recognizer->attach(this);
}

void View::removeGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer)
{
    const auto it = std::find(m_gestureRecognizers.begin(), m_gestureRecognizers.end(), recognizer);
    if (it == m_gestureRecognizers.end())
        return;
    const std::shared_ptr<GestureRecognizer> keep = *it;
    m_gestureRecognizers.erase(it);
    keep->attach(nullptr);
    // A gesture under way stops with its view.
    keep->forgetTouches(TouchSet(keep->trackedTouches()));
}

// MARK: - Layout and drawing marks

void View::layoutIfNeeded()
{
    if (m_needsLayout) {
        m_needsLayout = false;
        layoutSubviews();
    }
    for (const auto& subview : std::vector(m_subviews))
        subview->layoutIfNeeded();
}

void View::setNeedsDisplay()
{
    m_needsDisplay = true;
    for (View* v = this; v; v = v->m_superview)
        v->m_subtreeNeedsDisplay = true;
}

void View::clearNeedsDisplay()
{
    m_needsDisplay = false;
    m_subtreeNeedsDisplay = false;
    for (const auto& subview : m_subviews)
        subview->clearNeedsDisplay();
}

// MARK: - Frame helpers

void View::vrq_setX(double x)
{
    Rect f = frame();
    f.origin.x = x;
    setFrame(f);
}

void View::vrq_setY(double y)
{
    Rect f = frame();
    f.origin.y = y;
    setFrame(f);
}

void View::vrq_setW(double width)
{
    Rect f = frame();
    f.size.width = width;
    setFrame(f);
}

void View::vrq_setH(double height)
{
    Rect f = frame();
    f.size.height = height;
    setFrame(f);
}

void View::vrq_setCenter(Point center)
{
    Rect f = frame();
    f.origin = {center.x - f.size.width / 2, center.y - f.size.height / 2};
    setFrame(f);
}

} // namespace vrq
