// The window's view drawing, into a software renderer's memory surface.
#include "ViewRenderer.h"

#include "vrq/platform/views/Image.h"
#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Label.h"

#include <SDL.h>
#include <gtest/gtest.h>

namespace {

struct Rgb {
    int red, green, blue;
    bool operator==(const Rgb&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Rgb& c)
{
    return out << "(" << c.red << ", " << c.green << ", " << c.blue << ")";
}

class ViewRendererTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(m_surface, nullptr);
        ASSERT_NE(m_renderer, nullptr);
        m_root->setBackgroundColor({0, 0, 0, 1});
    }

    void TearDown() override
    {
        m_views.reset(); // its textures belong to the renderer
        SDL_DestroyRenderer(m_renderer);
        SDL_FreeSurface(m_surface);
    }

    std::shared_ptr<vrq::View> add(vrq::Rect frame, vrq::Color colour)
    {
        auto view = std::make_shared<vrq::View>(frame);
        view->setBackgroundColor(colour);
        m_root->addSubview(view);
        return view;
    }

    void draw(double scale = 1)
    {
        SDL_SetRenderDrawColor(m_renderer, 0, 0, 0, 255);
        SDL_RenderClear(m_renderer);
        m_views->draw(*m_root, scale, nullptr);
        SDL_RenderPresent(m_renderer);
        m_views->endFrame();
    }

    Rgb at(int x, int y) const
    {
        const auto* row = static_cast<const std::uint8_t*>(m_surface->pixels) + y * m_surface->pitch;
        return {row[x * 4], row[x * 4 + 1], row[x * 4 + 2]};
    }

    SDL_Surface* m_surface = SDL_CreateRGBSurfaceWithFormat(0, 400, 200, 32, SDL_PIXELFORMAT_RGBA32);
    SDL_Renderer* m_renderer = SDL_CreateSoftwareRenderer(m_surface);
    std::unique_ptr<ViewRenderer> m_views = std::make_unique<ViewRenderer>(m_renderer);
    std::shared_ptr<vrq::View> m_root = std::make_shared<vrq::View>(vrq::Rect{{0, 0}, {200, 100}});
};

TEST_F(ViewRendererTest, PlacesViewsByFrameTransformAndAlphaOfEveryAncestor)
{
    add({{10, 10}, {40, 20}}, {1, 0, 0, 1});
    auto faded = add({{60, 10}, {40, 20}}, {0, 0, 1, 1});
    faded->setAlpha(0.5);
    add({{110, 10}, {40, 20}}, {0, 1, 0, 1})->setHidden(true);
    // Doubled about its centre (155, 65): 10 x 10 becomes 20 x 20.
    auto grown = add({{150, 60}, {10, 10}}, {0, 1, 0, 1});
    grown->setTransform(vrq::AffineTransform::makeScale(2, 2));
    // A child is placed in its parent's coordinates and fades with it.
    auto child = std::make_shared<vrq::View>(vrq::Rect{{5, 5}, {10, 10}});
    child->setBackgroundColor({1, 1, 1, 1});
    faded->addSubview(child);

    draw(2); // two pixels a point
    EXPECT_EQ(at(2 * 12, 2 * 12), (Rgb{255, 0, 0}));
    EXPECT_EQ(at(2 * 8, 2 * 12), (Rgb{0, 0, 0}));
    EXPECT_NEAR(at(2 * 62, 2 * 12).blue, 128, 2);
    EXPECT_NEAR(at(2 * 70, 2 * 20).red, 128, 2) << "the child is at (65, 15) to (75, 25)";
    EXPECT_EQ(at(2 * 120, 2 * 20), (Rgb{0, 0, 0})) << "hidden";
    EXPECT_EQ(at(2 * 146, 2 * 56), (Rgb{0, 255, 0})) << "scaled about its centre";
    EXPECT_EQ(at(2 * 144, 2 * 54), (Rgb{0, 0, 0}));
}

TEST_F(ViewRendererTest, DrawsImagesAndTextAndRedrawsATextOnlyWhenItChanged)
{
    // A 2 x 1 image, red then blue, stretched over 40 x 20.
    auto image = std::make_shared<vrq::Image>(2, 1, std::vector<std::uint8_t>{255, 0, 0, 255, 0, 0, 255, 255});
    auto imageView = std::make_shared<vrq::ImageView>(vrq::Rect{{10, 10}, {40, 20}});
    imageView->setImage(image);
    m_root->addSubview(imageView);
    auto label = std::make_shared<vrq::Label>(vrq::Rect{{10, 50}, {180, 40}});
    label->setText("WWWW");
    label->setFontSize(30);
    label->setTextColor({1, 1, 0, 1});
    m_root->addSubview(label);

    draw();
    EXPECT_EQ(at(14, 20), (Rgb{255, 0, 0}));
    EXPECT_EQ(at(46, 20), (Rgb{0, 0, 255}));
    int inked = 0;
    for (int y = 50; y < 90; ++y)
        for (int x = 10; x < 190; ++x)
            inked += at(x, y) == Rgb{255, 255, 0} ? 1 : 0;
    EXPECT_GT(inked, 100) << "the text's yellow";
    EXPECT_EQ(m_views->textures().textsRendered(), 1);

    draw();
    EXPECT_EQ(m_views->textures().textsRendered(), 1) << "an unchanged label keeps its texture";
    label->setText("MMMM");
    draw();
    EXPECT_EQ(m_views->textures().textsRendered(), 2);
}

} // namespace
