#pragma once

#include "vrq/platform/views/Image.h"
#include "vrq/platform/views/View.h"

#include <memory>

namespace vrq {

enum class ContentMode : int { ScaleToFill = 0, ScaleAspectFit = 1, ScaleAspectFill = 2, Center = 4 };

// Shows an image in its bounds, placed by its content mode. Takes no
// touches by default, as UIKit's.
class ImageView : public View {
public:
    explicit ImageView(Rect frame = {});
    std::shared_ptr<const Image> image() const { return m_image; }
    void setImage(std::shared_ptr<const Image> image);
    // Shown instead of the image while highlighted, when there is one.
    std::shared_ptr<const Image> highlightedImage() const { return m_highlightedImage; }
    void setHighlightedImage(std::shared_ptr<const Image> image);
    bool isHighlighted() const { return m_highlighted; }
    void setHighlighted(bool highlighted);
    ContentMode contentMode() const { return m_contentMode; }
    void setContentMode(ContentMode mode);
    // The image shown now, and where, in this view's coordinates.
    std::shared_ptr<const Image> displayedImage() const;
    Rect imageRect() const;

private:
    std::shared_ptr<const Image> m_image;
    std::shared_ptr<const Image> m_highlightedImage;
    bool m_highlighted = false;
    ContentMode m_contentMode = ContentMode::ScaleToFill;
};

} // namespace vrq
