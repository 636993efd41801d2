#pragma once

namespace vrq {

// Components in 0..1.
struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 0;
    bool operator==(const Color&) const = default;
};

} // namespace vrq
