#include "vrq/platform/views/ImageView.h"

#include <algorithm>
#include <utility>

namespace vrq {

namespace {

// A rectangle of a size centred in another.
Rect centredIn(Rect area, Size size)
{
    return {{area.origin.x + (area.size.width - size.width) / 2, area.origin.y + (area.size.height - size.height) / 2},
            size};
}

} // namespace

ImageView::ImageView(Rect frame)
    : View(frame)
{
    setUserInteractionEnabled(false);
}

void ImageView::setImage(std::shared_ptr<const Image> image)
{
    if (image == m_image)
        return;
    m_image = std::move(image);
    setNeedsDisplay();
}

void ImageView::setHighlightedImage(std::shared_ptr<const Image> image)
{
    if (image == m_highlightedImage)
        return;
    m_highlightedImage = std::move(image);
    setNeedsDisplay();
}

void ImageView::setHighlighted(bool highlighted)
{
    if (highlighted == m_highlighted)
        return;
    m_highlighted = highlighted;
    setNeedsDisplay();
}

void ImageView::setContentMode(ContentMode mode)
{
    if (mode == m_contentMode)
        return;
    m_contentMode = mode;
    setNeedsDisplay();
}

std::shared_ptr<const Image> ImageView::displayedImage() const
{
    return m_highlighted && m_highlightedImage ? m_highlightedImage : m_image;
}

Rect ImageView::imageRect() const
{
    const auto image = displayedImage();
    if (!image || image->width() <= 0 || image->height() <= 0)
        return {};
    const Rect area = bounds();
    const Size natural{static_cast<double>(image->width()), static_cast<double>(image->height())};
    const double across = area.size.width / natural.width;
    const double down = area.size.height / natural.height;
    switch (m_contentMode) {
    case ContentMode::ScaleToFill:
        return area;
    case ContentMode::ScaleAspectFit: {
        const double scale = std::min(across, down);
        return centredIn(area, {natural.width * scale, natural.height * scale});
    }
    case ContentMode::ScaleAspectFill: {
        const double scale = std::max(across, down);
        return centredIn(area, {natural.width * scale, natural.height * scale});
    }
    case ContentMode::Center:
        return centredIn(area, natural);
    }
    return area;
}

} // namespace vrq
