#pragma once

#include "vrq/platform/views/Geometry.h"

#include <memory>
#include <vector>

namespace vrq {

// A retained view: a frame in its parent's coordinates, visibility and
// children. The toolkit draws nothing; a renderer walks the tree. Views are
// used on the main thread.
class View : public std::enable_shared_from_this<View> {
public:
    explicit View(Rect frame = {});
    virtual ~View() = default;

    Rect frame() const { return m_frame; }
    virtual void setFrame(Rect frame) { m_frame = frame; }
    Rect bounds() const { return {{0, 0}, m_frame.size}; }
    bool isHidden() const { return m_hidden; }
    void setHidden(bool hidden) { m_hidden = hidden; }
    double alpha() const { return m_alpha; }
    void setAlpha(double alpha) { m_alpha = alpha; }

    void addSubview(const std::shared_ptr<View>& view);
    void removeFromSuperview();
    const std::vector<std::shared_ptr<View>>& subviews() const { return m_subviews; }
    View* superview() const { return m_superview; }

    // Frame helpers.
    double vrq_left() const { return m_frame.origin.x; }
    double vrq_top() const { return m_frame.origin.y; }
    double vrq_w() const { return m_frame.size.width; }
    double vrq_h() const { return m_frame.size.height; }
    void vrq_setX(double x);
    void vrq_setY(double y);
    void vrq_setW(double width);
    void vrq_setH(double height);
    void vrq_setCenter(Point center);

private:
    Rect m_frame;
    bool m_hidden = false;
    double m_alpha = 1.0;
    View* m_superview = nullptr;
    std::vector<std::shared_ptr<View>> m_subviews;
};

} // namespace vrq
