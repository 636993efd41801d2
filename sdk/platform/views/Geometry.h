#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vrq {

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    Point origin;
    Size size;
    bool operator==(const Rect&) const = default;
};

struct EdgeInsets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;
    bool operator==(const EdgeInsets&) const = default;
};

// A 2-D affine transform: x' = a x + c y + tx, y' = b x + d y + ty.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
    bool operator==(const AffineTransform&) const = default;

    static AffineTransform identity() { return {}; }
    static AffineTransform makeScale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
    static AffineTransform makeTranslation(double dx, double dy) { return {1, 0, 0, 1, dx, dy}; }
    bool isIdentity() const { return *this == AffineTransform{}; }

    // This transform after a scale, and after a translation, in its own
    // units: CGAffineTransformScale and CGAffineTransformTranslate.
    AffineTransform scaled(double sx, double sy) const;
    AffineTransform translated(double dx, double dy) const;
    // This transform, then other.
    AffineTransform concatenating(const AffineTransform& other) const;
    // The inverse; the identity when this one cannot be inverted.
    AffineTransform inverted() const;
    Point apply(Point point) const;
    // The smallest rectangle holding the transformed rectangle.
    Rect apply(Rect rect) const;
};

bool rectContainsPoint(Rect rect, Point point); // the left and top edges in, the right and bottom out

// Text forms: "{w, h}", "{{x, y}, {w, h}}" and "{top, left, bottom, right}",
// numbers in their shortest form ("{{-2, -3.5}, {16, 16}}").
std::string stringFromSize(Size size);
std::string stringFromRect(Rect rect);
std::string stringFromEdgeInsets(EdgeInsets insets);
// Reads the rectangle form back; nothing when the text is not in that form.
std::optional<Rect> rectFromString(std::string_view text);

} // namespace vrq
