#include "ViewRenderer.h"

#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Label.h"
#include "vrq/platform/views/VideoView.h"

#include <SDL.h>

#include <array>
#include <cmath>

namespace {

Uint8 byte(double value)
{
    return static_cast<Uint8>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
}

// Maps a point in the view's own coordinates to its superview's.
vrq::AffineTransform toSuperview(const vrq::View& view)
{
    const vrq::Rect bounds = view.bounds();
    const vrq::Point middle{bounds.origin.x + bounds.size.width / 2, bounds.origin.y + bounds.size.height / 2};
    const vrq::AffineTransform& t = view.transform();
    const vrq::Point center = view.center();
    return {t.a, t.b, t.c, t.d, t.tx + center.x - (t.a * middle.x + t.c * middle.y),
            t.ty + center.y - (t.b * middle.x + t.d * middle.y)};
}

bool isAxisAligned(const vrq::AffineTransform& t)
{
    return t.b == 0 && t.c == 0 && t.a > 0 && t.d > 0;
}

// Where a label's text goes in its bounds: centred vertically, aligned as asked.
vrq::Rect textRect(const vrq::Label& label, double width, double height)
{
    const vrq::Rect bounds = label.bounds();
    double x = bounds.origin.x;
    if (label.textAlignment() == vrq::TextAlignment::Center)
        x += (bounds.size.width - width) / 2;
    else if (label.textAlignment() == vrq::TextAlignment::Right)
        x += bounds.size.width - width;
    return {{x, bounds.origin.y + (bounds.size.height - height) / 2}, {width, height}};
}

} // namespace

ViewRenderer::ViewRenderer(SDL_Renderer* renderer)
    : m_renderer(renderer)
    , m_textures(renderer)
{
}

void ViewRenderer::draw(const vrq::View& root, double pixelScale, SDL_Texture* video)
{
    m_pixelScale = pixelScale;
    m_video = video;
    // The root's own coordinates are the window's: its frame does not move it.
    drawView(root, vrq::AffineTransform::makeScale(pixelScale, pixelScale), 1.0);
}

void ViewRenderer::drawView(const vrq::View& view, const vrq::AffineTransform& toPixels, double alpha)
{
    const double shown = alpha * view.alpha();
    if (view.isHidden() || shown < 0.01)
        return;
    drawContent(view, toPixels, shown);
    for (const auto& subview : view.subviews())
        drawView(*subview, toSuperview(*subview).concatenating(toPixels), shown);
}

void ViewRenderer::drawContent(const vrq::View& view, const vrq::AffineTransform& toPixels, double alpha)
{
    if (view.backgroundColor().alpha > 0)
        fill(view.bounds(), toPixels, view.backgroundColor(), alpha);
    if (dynamic_cast<const vrq::VideoView*>(&view)) {
        // The host lays the video view out at the picture's aspect ratio.
        copy(m_video, view.bounds(), toPixels, alpha);
    } else if (const auto* imageView = dynamic_cast<const vrq::ImageView*>(&view)) {
        copy(m_textures.image(imageView->displayedImage()), imageView->imageRect(), toPixels, alpha);
    } else if (const auto* label = dynamic_cast<const vrq::Label*>(&view)) {
        const auto text = m_textures.text(*label, m_pixelScale);
        copy(text.texture, textRect(*label, text.width / m_pixelScale, text.height / m_pixelScale), toPixels, alpha);
    }
}

void ViewRenderer::fill(vrq::Rect rect, const vrq::AffineTransform& toPixels, vrq::Color color, double alpha)
{
    drawQuad(nullptr, rect, toPixels, {byte(color.red), byte(color.green), byte(color.blue), byte(color.alpha * alpha)});
}

void ViewRenderer::copy(SDL_Texture* texture, vrq::Rect rect, const vrq::AffineTransform& toPixels, double alpha)
{
    if (texture)
        drawQuad(texture, rect, toPixels, {255, 255, 255, byte(alpha)});
}

// A rectangle of the view's coordinates, filled with the tint or with the
// texture faded by the tint's alpha.
void ViewRenderer::drawQuad(SDL_Texture* texture, vrq::Rect rect, const vrq::AffineTransform& toPixels, SDL_Color tint)
{
    if (rect.size.width <= 0 || rect.size.height <= 0)
        return;
    if (isAxisAligned(toPixels)) {
        const vrq::Rect placed = toPixels.apply(rect);
        const SDL_FRect area{static_cast<float>(placed.origin.x), static_cast<float>(placed.origin.y),
                             static_cast<float>(placed.size.width), static_cast<float>(placed.size.height)};
        if (texture) {
            SDL_SetTextureAlphaMod(texture, tint.a);
            SDL_RenderCopyF(m_renderer, texture, nullptr, &area);
        } else {
            SDL_SetRenderDrawBlendMode(m_renderer, SDL_BLENDMODE_BLEND);
            SDL_SetRenderDrawColor(m_renderer, tint.r, tint.g, tint.b, tint.a);
            SDL_RenderFillRectF(m_renderer, &area);
        }
        return;
    }
    // Rotated or mirrored: two triangles.
    const vrq::Point corners[4] = {{rect.origin.x, rect.origin.y},
                                   {rect.origin.x + rect.size.width, rect.origin.y},
                                   {rect.origin.x + rect.size.width, rect.origin.y + rect.size.height},
                                   {rect.origin.x, rect.origin.y + rect.size.height}};
    const float u[4] = {0, 1, 1, 0};
    const float v[4] = {0, 0, 1, 1};
    std::array<SDL_Vertex, 4> vertices{};
    for (std::size_t i = 0; i < 4; ++i) {
        const vrq::Point p = toPixels.apply(corners[i]);
        vertices[i] = {{static_cast<float>(p.x), static_cast<float>(p.y)}, tint, {u[i], v[i]}};
    }
    const int indices[6] = {0, 1, 2, 0, 2, 3};
    SDL_RenderGeometry(m_renderer, texture, vertices.data(), 4, indices, 6);
}
