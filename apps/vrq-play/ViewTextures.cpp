#include "ViewTextures.h"

#include "vrq/log/VRQLog.h"
#include "vrq/platform/views/Image.h"
#include "vrq/platform/views/Label.h"

#include <SDL.h>
#include <SDL_ttf.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kFontFolder = "/usr/share/fonts/truetype/dejavu/";

int channel(double value)
{
    return static_cast<int>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
}

void destroy(SDL_Texture* texture)
{
    if (texture)
        SDL_DestroyTexture(texture);
}

// Drops the entries no frame used since the last sweep and marks the rest unused.
template<typename Entries, typename TextureOf>
void sweepEntries(Entries& entries, TextureOf textureOf)
{
    for (auto it = entries.begin(); it != entries.end();) {
        if (it->second.used) {
            it->second.used = false;
            ++it;
            continue;
        }
        destroy(textureOf(it->second));
        it = entries.erase(it);
    }
}

} // namespace

ViewTextures::ViewTextures(SDL_Renderer* renderer)
    : m_renderer(renderer)
    , m_ttfReady(TTF_Init() == 0)
{
    if (!m_ttfReady)
        VRQ_LOG(2, "no text drawing: %s", TTF_GetError());
}

ViewTextures::~ViewTextures()
{
    for (auto& [key, entry] : m_images)
        destroy(entry.texture);
    for (auto& [key, entry] : m_texts)
        destroy(entry.text.texture);
    for (auto& [key, font] : m_fonts)
        TTF_CloseFont(font);
    if (m_ttfReady)
        TTF_Quit();
}

SDL_Texture* ViewTextures::image(const std::shared_ptr<const vrq::Image>& image)
{
    if (!image || image->width() <= 0 || image->height() <= 0)
        return nullptr;
    auto& entry = m_images[image.get()];
    entry.used = true;
    if (entry.texture && entry.image.lock() == image)
        return entry.texture;
    destroy(entry.texture);
    entry.image = image;
    entry.texture =
        SDL_CreateTexture(m_renderer, SDL_PIXELFORMAT_RGBA32, SDL_TEXTUREACCESS_STATIC, image->width(), image->height());
    if (!entry.texture)
        return nullptr;
    SDL_UpdateTexture(entry.texture, nullptr, image->rgba().data(), image->width() * 4);
    SDL_SetTextureBlendMode(entry.texture, SDL_BLENDMODE_BLEND);
    SDL_SetTextureScaleMode(entry.texture, SDL_ScaleModeLinear);
    return entry.texture;
}

ViewTextures::Text ViewTextures::text(const vrq::Label& label, double pixelScale)
{
    if (label.text().empty())
        return {};
    const int pixels = std::max(1, static_cast<int>(std::lround(label.fontSize() * pixelScale)));
    const vrq::Color color = label.textColor();
    TextKey key{label.text(), pixels, label.isBold(), channel(color.red), channel(color.green), channel(color.blue),
                channel(color.alpha)};
    auto& entry = m_texts[&label];
    entry.used = true;
    if (entry.text.texture && entry.key == key)
        return entry.text;
    destroy(entry.text.texture);
    entry.key = std::move(key);
    entry.text = render(label, pixels);
    return entry.text;
}

ViewTextures::Text ViewTextures::render(const vrq::Label& label, int pixels)
{
    TTF_Font* face = font(pixels, label.isBold());
    if (!face)
        return {};
    const vrq::Color color = label.textColor();
    const SDL_Color ink{static_cast<Uint8>(channel(color.red)), static_cast<Uint8>(channel(color.green)),
                        static_cast<Uint8>(channel(color.blue)), static_cast<Uint8>(channel(color.alpha))};
    SDL_Surface* surface = TTF_RenderUTF8_Blended(face, label.text().c_str(), ink);
    if (!surface)
        return {};
    Text text{SDL_CreateTextureFromSurface(m_renderer, surface), surface->w, surface->h};
    SDL_FreeSurface(surface);
    if (text.texture)
        SDL_SetTextureBlendMode(text.texture, SDL_BLENDMODE_BLEND);
    ++m_textsRendered;
    return text;
}

TTF_Font* ViewTextures::font(int pixels, bool bold)
{
    if (!m_ttfReady)
        return nullptr;
    const auto key = std::make_pair(pixels, bold);
    if (const auto it = m_fonts.find(key); it != m_fonts.end())
        return it->second;
    const std::string path = std::string(kFontFolder) + (bold ? "DejaVuSans-Bold.ttf" : "DejaVuSans.ttf");
    TTF_Font* face = TTF_OpenFont(path.c_str(), pixels);
    if (!face && !m_fontMissingLogged) {
        m_fontMissingLogged = true;
        VRQ_LOG(2, "no font for labels (%s): %s", path.c_str(), TTF_GetError());
    }
    if (face)
        m_fonts[key] = face;
    return face;
}

void ViewTextures::sweep()
{
    sweepEntries(m_images, [](ImageEntry& entry) { return entry.texture; });
    sweepEntries(m_texts, [](TextEntry& entry) { return entry.text.texture; });
}
