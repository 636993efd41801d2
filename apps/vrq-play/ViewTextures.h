#pragma once

#include "vrq/platform/views/Color.h"

#include <map>
#include <memory>
#include <string>
#include <tuple>

struct SDL_Renderer;
struct SDL_Texture;
typedef struct _TTF_Font TTF_Font;

namespace vrq {
class Image;
class Label;
}

// The renderer's textures for the views' images and texts. An image is
// uploaded once for as long as it lives; a label's text is drawn again only
// when its text, size, weight or colour changed. Whatever a frame did not use
// is freed by the next sweep(). Main thread only.
class ViewTextures {
public:
    struct Text {
        SDL_Texture* texture = nullptr;
        int width = 0; // pixels
        int height = 0;
    };

    explicit ViewTextures(SDL_Renderer* renderer);
    ~ViewTextures();
    ViewTextures(const ViewTextures&) = delete;
    ViewTextures& operator=(const ViewTextures&) = delete;

    SDL_Texture* image(const std::shared_ptr<const vrq::Image>& image);
    // The label's text at pixelScale pixels a point; no texture for an empty text.
    Text text(const vrq::Label& label, double pixelScale);
    // Frees what was not used since the last sweep.
    void sweep();
    // Texts drawn since the start, for those who check that unchanged labels are not redrawn.
    int textsRendered() const { return m_textsRendered; }

private:
    struct ImageEntry {
        std::weak_ptr<const vrq::Image> image; // the key's pointer may be reused once it is gone
        SDL_Texture* texture = nullptr;
        bool used = true;
    };
    using TextKey = std::tuple<std::string, int, bool, int, int, int, int>;
    struct TextEntry {
        TextKey key;
        Text text;
        bool used = true;
    };

    TTF_Font* font(int pixels, bool bold);
    Text render(const vrq::Label& label, int pixels);

    SDL_Renderer* m_renderer;
    bool m_ttfReady = false;
    bool m_fontMissingLogged = false;
    std::map<std::pair<int, bool>, TTF_Font*> m_fonts;
    std::map<const vrq::Image*, ImageEntry> m_images;
    std::map<const vrq::Label*, TextEntry> m_texts;
    int m_textsRendered = 0;
};
