#include "vrq/platform/views/Geometry.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace vrq {

namespace {

// The shortest text that reads back to the same value ("640", "-0.0011").
std::string number(double value)
{
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

std::string pair(double first, double second)
{
    return "{" + number(first) + ", " + number(second) + "}";
}

} // namespace

std::string stringFromSize(Size size)
{
    return pair(size.width, size.height);
}

std::string stringFromRect(Rect rect)
{
    return "{" + pair(rect.origin.x, rect.origin.y) + ", " + pair(rect.size.width, rect.size.height) + "}";
}

std::string stringFromEdgeInsets(EdgeInsets insets)
{
    return "{" + number(insets.top) + ", " + number(insets.left) + ", " + number(insets.bottom) + ", "
           + number(insets.right) + "}";
}

std::optional<Rect> rectFromString(std::string_view text)
{
    const std::string copy(text);
    Rect rect;
    int consumed = 0;
    const int read = std::sscanf(copy.c_str(), " {{ %lf , %lf } , { %lf , %lf }}%n", &rect.origin.x, &rect.origin.y,
                                 &rect.size.width, &rect.size.height, &consumed);
    if (read != 4 || consumed == 0)
        return std::nullopt;
    return rect;
}

AffineTransform AffineTransform::scaled(double sx, double sy) const
{
    return AffineTransform::makeScale(sx, sy).concatenating(*this);
}

AffineTransform AffineTransform::translated(double dx, double dy) const
{
    return AffineTransform::makeTranslation(dx, dy).concatenating(*this);
}

AffineTransform AffineTransform::concatenating(const AffineTransform& o) const
{
    return {a * o.a + b * o.c, a * o.b + b * o.d, c * o.a + d * o.c, c * o.b + d * o.d, tx * o.a + ty * o.c + o.tx,
            tx * o.b + ty * o.d + o.ty};
}

AffineTransform AffineTransform::inverted() const
{
    const double determinant = a * d - b * c;
    if (determinant == 0 || !std::isfinite(determinant))
        return {};
    return {d / determinant,  -b / determinant, -c / determinant, a / determinant, (c * ty - d * tx) / determinant,
            (b * tx - a * ty) / determinant};
}

Point AffineTransform::apply(Point p) const
{
    return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty};
}

Rect AffineTransform::apply(Rect r) const
{
    const Point corners[] = {apply(r.origin), apply(Point{r.origin.x + r.size.width, r.origin.y}),
                             apply(Point{r.origin.x, r.origin.y + r.size.height}),
                             apply(Point{r.origin.x + r.size.width, r.origin.y + r.size.height})};
    double left = corners[0].x, right = corners[0].x, top = corners[0].y, bottom = corners[0].y;
    for (const Point& corner : corners) {
        left = std::min(left, corner.x);
        right = std::max(right, corner.x);
        top = std::min(top, corner.y);
        bottom = std::max(bottom, corner.y);
    }
    return {{left, top}, {right - left, bottom - top}};
}

bool rectContainsPoint(Rect rect, Point point)
{
    return point.x >= rect.origin.x && point.y >= rect.origin.y && point.x < rect.origin.x + rect.size.width
           && point.y < rect.origin.y + rect.size.height;
}

} // namespace vrq
