// The values inside a layout: lengths against a reference length, frames
// from dictionaries of lengths, and colours. The input is one value's text.
#include "FuzzCheck.h"

#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/utils/VRQColorHelpers.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQLayoutHelpers.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

bool inUnitRange(double value)
{
    return value >= 0 && value <= 1;
}

void checkColor(vrq::Color color)
{
    FUZZ_CHECK(inUnitRange(color.red) && inUnitRange(color.green) && inUnitRange(color.blue)
               && inUnitRange(color.alpha));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    const vrq::Color color = vrq_colorValue(text);
    checkColor(color);
    if (text.size() != 7 && text.size() != 9)
        FUZZ_CHECK(color.red == 0 && color.green == 0 && color.blue == 0 && color.alpha == 0);
    const vrq::Color layoutColor = VRQVGamepadUtil::colorFromString(text);
    FUZZ_CHECK(layoutColor == color);

    // Relative lengths and lengths from the end.
    const double reference = 400;
    const double point = getPointValue(text, reference);
    FUZZ_CHECK(!std::isnan(point));
    FUZZ_CHECK(point == vrq_absoluteFloatValue(text, reference));
    if (text.empty())
        FUZZ_CHECK(point == 0);
    (void)vrq_intValue(text);

    // The gamepad's lengths against a 1280 x 720 parent: a length that cannot
    // be placed is 0, never an infinity.
    VRQVGamepadUtil::setParentSize(1280, 720);
    FUZZ_CHECK(std::isfinite(VRQVGamepadUtil::stringToPointW(text)));
    FUZZ_CHECK(std::isfinite(VRQVGamepadUtil::stringToPointH(text)));

    // The same text as every member of a frame dictionary, and the input as
    // a dictionary of its own.
    nlohmann::json frameDictionary = nlohmann::json::object();
    for (const char* key : {"width", "height", "left", "top", "right", "bottom", "centerx", "centery"})
        frameDictionary[key] = text;
    (void)vrq_getFrameWithReferencenSize(frameDictionary, {1280, 720});
    if (const auto dictionary = vrq_dictionaryWithJsonObject(text))
        (void)vrq_getFrameWithReferencenSize(*dictionary, {1280, 720});
    return 0;
}
