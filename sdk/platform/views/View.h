#pragma once

#include "vrq/platform/views/Color.h"
#include "vrq/platform/views/Geometry.h"

#include <memory>
#include <vector>

namespace vrq {

class Event;
class GestureRecognizer;
class Touch;
class Window;

using TouchSet = std::vector<std::shared_ptr<Touch>>;

// A retained view, as UIKit's: a bounds rectangle in its own coordinates
// placed by its centre and transform in its superview's. The toolkit draws
// nothing; a renderer walks the tree (frames, transforms, alpha, colours,
// images, text) and uses the needs-display marks to redraw only what
// changed. Views are used on the main thread.
class View : public std::enable_shared_from_this<View> {
public:
    explicit View(Rect frame = {});
    virtual ~View();
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // Geometry. The frame is the bounding box, in the superview's
    // coordinates, of the bounds transformed about the centre; setting it
    // sets the centre and the bounds' size (as UIKit, meant for views
    // without a transform).
    Rect frame() const;
    virtual void setFrame(Rect frame);
    Rect bounds() const { return m_bounds; }
    void setBounds(Rect bounds);
    Point center() const { return m_center; }
    void setCenter(Point center);
    AffineTransform transform() const { return m_transform; }
    void setTransform(const AffineTransform& transform);

    // Appearance and interaction.
    bool isHidden() const { return m_hidden; }
    void setHidden(bool hidden);
    double alpha() const { return m_alpha; }
    void setAlpha(double alpha);
    Color backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(Color color);
    bool isUserInteractionEnabled() const { return m_userInteractionEnabled; }
    void setUserInteractionEnabled(bool enabled) { m_userInteractionEnabled = enabled; }
    bool isMultipleTouchEnabled() const { return m_multipleTouchEnabled; }
    void setMultipleTouchEnabled(bool enabled) { m_multipleTouchEnabled = enabled; }

    // The tree. A view holds its subviews; its superview and window are
    // non-owning and cleared when it is removed.
    void addSubview(const std::shared_ptr<View>& view);
    void insertSubview(const std::shared_ptr<View>& view, std::size_t index);
    void removeFromSuperview();
    const std::vector<std::shared_ptr<View>>& subviews() const { return m_subviews; }
    View* superview() const { return m_superview; }
    // The root window this view is in, if any.
    Window* window() const;
    bool isDescendantOf(const View* view) const;

    // Hit-testing, in this view's own coordinates. Hidden views, views that
    // take no touches and views with alpha below 0.01 are skipped, with
    // their subviews; later subviews are tested first.
    virtual bool pointInside(Point point) const;
    virtual View* hitTest(Point point);
    // A point in this view's coordinates in another view's, and back; a
    // null view stands for the root's coordinates.
    Point convertPointToView(Point point, const View* view) const;
    Point convertPointFromView(Point point, const View* view) const;

    // Touch delivery: the window calls these with the touches of one phase
    // that belong to this view. They do nothing by default.
    virtual void touchesBegan(const TouchSet& touches, const Event& event);
    virtual void touchesMoved(const TouchSet& touches, const Event& event);
    virtual void touchesEnded(const TouchSet& touches, const Event& event);
    virtual void touchesCancelled(const TouchSet& touches, const Event& event);

    // Gesture recognisers see the touches of this view and of its subviews.
    void addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer);
    void removeGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer);
    const std::vector<std::shared_ptr<GestureRecognizer>>& gestureRecognizers() const { return m_gestureRecognizers; }

    // Called on the view once it was added to a superview or removed from it.
    virtual void didMoveToSuperview() {}

    // Layout: setNeedsLayout marks the view, layoutIfNeeded runs
    // layoutSubviews on it (and its marked subviews) once.
    void setNeedsLayout() { m_needsLayout = true; }
    void layoutIfNeeded();
    virtual void layoutSubviews() {}

    // Drawing marks: any change of what a renderer shows marks the view,
    // and every ancestor knows that something below it changed.
    void setNeedsDisplay();
    bool needsDisplay() const { return m_needsDisplay; }
    bool subtreeNeedsDisplay() const { return m_subtreeNeedsDisplay; }
    // A renderer clears the marks of the whole subtree once it has drawn it.
    void clearNeedsDisplay();

    // Frame helpers.
    double vrq_left() const { return frame().origin.x; }
    double vrq_top() const { return frame().origin.y; }
    double vrq_w() const { return frame().size.width; }
    double vrq_h() const { return frame().size.height; }
    void vrq_setX(double x);
    void vrq_setY(double y);
    void vrq_setW(double width);
    void vrq_setH(double height);
    void vrq_setCenter(Point center);

protected:
    // Maps a point in this view's coordinates to its superview's, and back.
    Point toSuperview(Point point) const;
    Point fromSuperview(Point point) const;

private:
    Rect m_bounds;
    Point m_center;
    AffineTransform m_transform;
    bool m_hidden = false;
    double m_alpha = 1.0;
    Color m_backgroundColor;
    bool m_userInteractionEnabled = true;
    bool m_multipleTouchEnabled = false;
    bool m_needsLayout = false;
    bool m_needsDisplay = true;
    bool m_subtreeNeedsDisplay = true;
    View* m_superview = nullptr;
    std::vector<std::shared_ptr<View>> m_subviews;
    std::vector<std::shared_ptr<GestureRecognizer>> m_gestureRecognizers;
};

} // namespace vrq
