#include "vrq/platform/views/Image.h"

#include <spng.h>

#include <memory>

namespace vrq {

namespace {

// Cursor images and icons are small; a bound keeps a hostile header from
// making the decoder allocate gigabytes.
constexpr std::uint32_t kMaxSide = 4096;

struct ContextDeleter {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

} // namespace

Image::Image(int width, int height, std::vector<std::uint8_t> rgba)
    : m_width(width)
    , m_height(height)
    , m_rgba(std::move(rgba))
{
}

std::optional<Image> Image::decode(std::string_view bytes)
{
    std::unique_ptr<spng_ctx, ContextDeleter> context(spng_ctx_new(0));
    if (!context || bytes.empty())
        return std::nullopt;
    spng_set_image_limits(context.get(), kMaxSide, kMaxSide);
    spng_set_chunk_limits(context.get(), 1 << 20, 1 << 22);
    if (spng_set_png_buffer(context.get(), bytes.data(), bytes.size()) != 0)
        return std::nullopt;
    spng_ihdr header{};
    if (spng_get_ihdr(context.get(), &header) != 0)
        return std::nullopt;
    std::size_t size = 0;
    if (spng_decoded_image_size(context.get(), SPNG_FMT_RGBA8, &size) != 0)
        return std::nullopt;
    std::vector<std::uint8_t> rgba(size);
    if (spng_decode_image(context.get(), rgba.data(), rgba.size(), SPNG_FMT_RGBA8, SPNG_DECODE_TRNS) != 0)
        return std::nullopt;
    return Image(static_cast<int>(header.width), static_cast<int>(header.height), std::move(rgba));
}

} // namespace vrq
