#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vrq {

// A decoded image: 8-bit RGBA rows, top to bottom, without padding.
class Image {
public:
    Image(int width, int height, std::vector<std::uint8_t> rgba);

    // Decodes a PNG file's bytes; nothing when they are not a PNG this
    // decoder can read, or when the image is larger than 4096 x 4096.
    static std::optional<Image> decode(std::string_view bytes);

    int width() const { return m_width; }
    int height() const { return m_height; }
    const std::vector<std::uint8_t>& rgba() const { return m_rgba; }

private:
    int m_width;
    int m_height;
    std::vector<std::uint8_t> m_rgba;
};

} // namespace vrq
