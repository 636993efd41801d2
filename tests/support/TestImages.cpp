#include "support/TestImages.h"

#include "CursorImage.h"

#include <cstdint>
#include <vector>

namespace vrqtest {

std::string makePng(int width, int height)
{
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width * height * 4));
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<std::uint8_t>((i / 4 % static_cast<std::size_t>(width)) * 16 + i % 4 * 60);
    return vrqserver::CursorImage::encodePng(width, height, pixels).value_or("");
}

} // namespace vrqtest
