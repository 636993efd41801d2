#include "CursorImage.h"

#include "vrq/platform/services/Crypto.h"

#include <spng.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace vrqserver {

namespace {

// '#' outline, '+' fill, '.' transparent; the tip is at the hotspot.
constexpr std::array<const char*, 16> kArrow = {
    "................",
    "................",
    "................",
    "..#.............",
    "..##............",
    "..#+#...........",
    "..#++#..........",
    "..#+++#.........",
    "..#++++#........",
    "..#+++++#.......",
    "..#++++++#......",
    "..#+++####......",
    "..#+##+#........",
    "..##..#+#.......",
    "......#+#.......",
    ".......#........",
};

std::vector<std::uint8_t> arrowPixels()
{
    std::vector<std::uint8_t> rgba;
    rgba.reserve(16 * 16 * 4);
    for (const char* row : kArrow)
        for (int column = 0; column < 16; ++column) {
            const char pixel = row[column];
            const std::uint8_t shade = pixel == '+' ? 255 : 0;
            rgba.insert(rgba.end(), {shade, shade, shade, static_cast<std::uint8_t>(pixel == '.' ? 0 : 255)});
        }
    return rgba;
}

struct ContextFree {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};

} // namespace

std::optional<std::string> CursorImage::encodePng(int width, int height, const std::vector<std::uint8_t>& rgba)
{
    if (width <= 0 || height <= 0 || rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4)
        return std::nullopt;
    std::unique_ptr<spng_ctx, ContextFree> context(spng_ctx_new(SPNG_CTX_ENCODER));
    if (!context)
        return std::nullopt;
    spng_set_option(context.get(), SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr header{};
    header.width = static_cast<std::uint32_t>(width);
    header.height = static_cast<std::uint32_t>(height);
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    if (spng_set_ihdr(context.get(), &header) != 0 ||
        spng_encode_image(context.get(), rgba.data(), rgba.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE) != 0)
        return std::nullopt;
    std::size_t length = 0;
    int error = 0;
    void* buffer = spng_get_png_buffer(context.get(), &length, &error);
    if (!buffer || error != 0)
        return std::nullopt;
    std::string png(static_cast<const char*>(buffer), length);
    std::free(buffer); // the encoder's buffer is the caller's, from the default allocator
    return png;
}

std::optional<CursorImage> CursorImage::arrow()
{
    auto png = encodePng(16, 16, arrowPixels());
    if (!png)
        return std::nullopt;
    CursorImage image;
    image.m_key = "arrow-1";
    image.m_png = std::move(*png);
    image.m_width = 16;
    image.m_height = 16;
    image.m_hotspotX = 2;
    image.m_hotspotY = 3;
    return image;
}

nlohmann::json CursorImage::message() const
{
    return {
        {"data_type", "mouse"},
        {"data_key", m_key},
        {"data", vrq::base64Encode(m_png)},
        {"hotspotx_v2", m_hotspotX},
        {"hotspoty_v2", m_hotspotY},
        {"width_v2", m_width},
        {"height_v2", m_height},
    };
}

} // namespace vrqserver
