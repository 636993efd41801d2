#include "vrq/platform/views/Geometry.h"

#include <charconv>
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

} // namespace vrq
