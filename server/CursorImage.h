#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vrqserver {

// A cursor image the game pushes on "cd": a PNG, its size and its hotspot,
// known to the client by its key. Immutable once made.
class CursorImage {
public:
    // The game's arrow, 16 by 16, under the key "arrow-1", hotspot (2, 3).
    // Nothing when it cannot be encoded.
    static std::optional<CursorImage> arrow();

    // A PNG of tightly packed 8-bit RGBA pixels; nothing when the encoder fails.
    static std::optional<std::string> encodePng(int width, int height, const std::vector<std::uint8_t>& rgba);

    const std::string& key() const { return m_key; }
    const std::string& png() const { return m_png; }
    int width() const { return m_width; }
    int height() const { return m_height; }

    // {"data_type":"mouse","data_key":KEY,"data":BASE64(PNG),"hotspotx_v2":X,
    //  "hotspoty_v2":Y,"width_v2":W,"height_v2":H}
    nlohmann::json message() const;

private:
    CursorImage() = default;

    std::string m_key;
    std::string m_png;
    int m_width = 0;
    int m_height = 0;
    int m_hotspotX = 0;
    int m_hotspotY = 0;
};

} // namespace vrqserver
