#pragma once

// Reads a PNG back with libspng, the way a client would show it.

#include <spng.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vrqtest {

struct DecodedPng {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> rgba; // tightly packed

    std::uint8_t alphaAt(std::uint32_t x, std::uint32_t y) const { return rgba[(y * width + x) * 4 + 3]; }
};

inline const std::string kPngSignature("\x89PNG\r\n\x1a\n", 8);

// Nothing when the bytes are not a whole, valid PNG.
inline std::optional<DecodedPng> decodePng(const std::string& png)
{
    struct Free {
        void operator()(spng_ctx* context) const { spng_ctx_free(context); }
    };
    std::unique_ptr<spng_ctx, Free> context(spng_ctx_new(0));
    if (!context || spng_set_png_buffer(context.get(), png.data(), png.size()) != 0)
        return std::nullopt;
    spng_ihdr header{};
    std::size_t size = 0;
    if (spng_get_ihdr(context.get(), &header) != 0 || spng_decoded_image_size(context.get(), SPNG_FMT_RGBA8, &size) != 0)
        return std::nullopt;
    DecodedPng decoded;
    decoded.width = header.width;
    decoded.height = header.height;
    decoded.rgba.resize(size);
    if (spng_decode_image(context.get(), decoded.rgba.data(), size, SPNG_FMT_RGBA8, 0) != 0)
        return std::nullopt;
    return decoded;
}

} // namespace vrqtest
