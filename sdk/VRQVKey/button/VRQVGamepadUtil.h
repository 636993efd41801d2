#pragma once

#include "vrq/platform/views/Color.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vrq {
class Image;
}

// Layout units and images of the on-screen gamepad. Layouts are written for
// a parent 1920 pixels wide; the container sets the real parent size when
// its width changes, and every conversion uses the last size (0 before the
// first: every length is then 0). Main thread only.
class VRQVGamepadUtil {
public:
    static constexpr double kReferenceWidth = 1920;

    static void setParentSize(double width, double height);
    // scale x pixels, truncated toward zero to whole points (single precision).
    static double pixelToPoint(std::int64_t pixels);
    // A layout length against the parent's width or height:
    //  - "0.25%" is 0.25 times the full length: the number before "%" is a
    //    fraction, not divided by 100 ("50%" is fifty times the length);
    //  - "120" is 120 reference pixels, truncated to whole pixels, scaled;
    //  - a negative result counts back from the end (the length is added);
    //  - empty gives 0; text that is no number, or a number too large to
    //    place, gives 0 and a log line.
    static double stringToPointW(std::string_view value);
    static double stringToPointH(std::string_view value);
    static double stringToPoint(std::string_view value, double denominator);
    // A fraction as a layout length: 0.25 gives "0.2500%".
    static std::string percentToString(double fraction);

    // A layout colour, "#RRGGBB" or "#RRGGBBAA"; other lengths are
    // transparent and logged.
    static vrq::Color colorFromString(std::string_view text);

    // The image "<name>.png" of the gamepad's image folder, decoded once and
    // kept; nothing (logged once) for an empty name, a name with a '/', or a
    // missing or unreadable file.
    static std::shared_ptr<const vrq::Image> loadImageFromFile(std::string_view name);

    // Where the kit's resources are: "vrqvkey" (the images) and "layouts"
    // (the ready layouts) inside it. Found at first use: the folder a host
    // set, else share/vrq beside the program's folder, the installed
    // share/vrq, or the source tree's resources.
    static std::string resourceFolder();
    // A host that ships its own images names their folder here (empty: the
    // kit's own again). Images already loaded are forgotten.
    static void setImageFolder(std::string folder);
    static std::string imageFolder();
};
