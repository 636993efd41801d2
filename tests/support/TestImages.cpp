#include "support/TestImages.h"

#include <spng.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace vrqtest {

std::string makePng(int width, int height)
{
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width * height * 4));
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<std::uint8_t>((i / 4 % static_cast<std::size_t>(width)) * 16 + i % 4 * 60);
    std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> context(spng_ctx_new(SPNG_CTX_ENCODER), spng_ctx_free);
    spng_set_option(context.get(), SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr header{};
    header.width = static_cast<std::uint32_t>(width);
    header.height = static_cast<std::uint32_t>(height);
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    spng_set_ihdr(context.get(), &header);
    if (spng_encode_image(context.get(), pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE) != 0)
        return {};
    std::size_t size = 0;
    int error = 0;
    void* buffer = spng_get_png_buffer(context.get(), &size, &error);
    if (!buffer)
        return {};
    std::string bytes(static_cast<const char*>(buffer), size);
    std::free(buffer);
    return bytes;
}

} // namespace vrqtest
