#pragma once

#include "ViewTextures.h"

#include "vrq/platform/views/Geometry.h"

struct SDL_Renderer;
struct SDL_Texture;
struct SDL_Color;

namespace vrq {
class View;
}

// Draws view trees with an SDL renderer: each view's background colour, its
// image (ImageView) or text (Label), and a video view's picture, placed by
// the frames, centres and transforms of the view and its ancestors, and faded
// by their alphas. Hidden and fully transparent views are skipped with their
// subviews. Main thread only.
class ViewRenderer {
public:
    explicit ViewRenderer(SDL_Renderer* renderer);

    // Draws root and its subtree; root's own coordinates are the window's
    // points, pixelScale pixels each. video is the picture a video view shows.
    void draw(const vrq::View& root, double pixelScale, SDL_Texture* video);
    // Ends a frame: textures that no view used in it are freed.
    void endFrame() { m_textures.sweep(); }
    const ViewTextures& textures() const { return m_textures; }

private:
    void drawView(const vrq::View& view, const vrq::AffineTransform& toPixels, double alpha);
    void drawContent(const vrq::View& view, const vrq::AffineTransform& toPixels, double alpha);
    void fill(vrq::Rect rect, const vrq::AffineTransform& toPixels, vrq::Color color, double alpha);
    void copy(SDL_Texture* texture, vrq::Rect rect, const vrq::AffineTransform& toPixels, double alpha);
    void drawQuad(SDL_Texture* texture, vrq::Rect rect, const vrq::AffineTransform& toPixels, SDL_Color tint);

    SDL_Renderer* m_renderer;
    ViewTextures m_textures;
    double m_pixelScale = 1;
    SDL_Texture* m_video = nullptr;
};
