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

// Text forms: "{w, h}", "{{x, y}, {w, h}}" and "{top, left, bottom, right}",
// numbers in their shortest form ("{{-2, -3.5}, {16, 16}}").
std::string stringFromSize(Size size);
std::string stringFromRect(Rect rect);
std::string stringFromEdgeInsets(EdgeInsets insets);
// Reads the rectangle form back; nothing when the text is not in that form.
std::optional<Rect> rectFromString(std::string_view text);

} // namespace vrq
