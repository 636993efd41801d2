// Decoded frames into the window's YUV texture, drawn by a software renderer.
#include "VideoPresenter.h"

#include "support/TestFrames.h"

#include <SDL.h>
#include <gtest/gtest.h>

namespace {

using vrq::rtc::PixelFormat;

class VideoPresenterTest : public ::testing::TestWithParam<PixelFormat> {
protected:
    void TearDown() override
    {
        m_presenter.reset();
        SDL_DestroyRenderer(m_renderer);
        SDL_FreeSurface(m_surface);
    }

    // The middle pixel of the texture drawn over the whole surface.
    std::array<int, 3> drawn()
    {
        SDL_RenderClear(m_renderer);
        SDL_RenderCopy(m_renderer, m_presenter->texture(), nullptr, nullptr);
        SDL_RenderPresent(m_renderer);
        const auto* row = static_cast<const std::uint8_t*>(m_surface->pixels) + 8 * m_surface->pitch;
        return {row[8 * 4], row[8 * 4 + 1], row[8 * 4 + 2]};
    }

    SDL_Surface* m_surface = SDL_CreateRGBSurfaceWithFormat(0, 16, 16, 32, SDL_PIXELFORMAT_RGBA32);
    SDL_Renderer* m_renderer = SDL_CreateSoftwareRenderer(m_surface);
    std::unique_ptr<VideoPresenter> m_presenter = std::make_unique<VideoPresenter>(m_renderer);
};

TEST_P(VideoPresenterTest, UploadsThePlanesThroughTheirStridesAndCountsEachFrameOnce)
{
    // Studio-range red and blue; rows padded, so that ignoring strides shows.
    const auto red = vrqtest::makeFrame(GetParam(), 6, 4, 16, 81, 90, 240);
    ASSERT_TRUE(m_presenter->upload(red));
    const auto r = drawn();
    EXPECT_GT(r[0], 230);
    EXPECT_LT(r[1], 25);
    EXPECT_LT(r[2], 25);
    EXPECT_FALSE(m_presenter->upload(red)) << "the texture holds that frame already";

    const auto blue = vrqtest::makeFrame(GetParam(), 6, 4, 16, 41, 240, 110);
    ASSERT_TRUE(m_presenter->upload(blue));
    const auto b = drawn();
    EXPECT_LT(b[0], 25);
    EXPECT_GT(b[2], 230);

    // Two frames uploaded before one present: the newer is the one shown, counted once.
    m_presenter->presented(std::chrono::steady_clock::now(), std::chrono::steady_clock::now());
    m_presenter->presented(std::chrono::steady_clock::now(), std::chrono::steady_clock::now());
    EXPECT_EQ(m_presenter->figures().presented, 1u);
    ASSERT_TRUE(m_presenter->upload(red));
    m_presenter->presented(std::chrono::steady_clock::now(), std::chrono::steady_clock::now());
    EXPECT_EQ(m_presenter->figures().presented, 2u);
}

INSTANTIATE_TEST_SUITE_P(Layouts, VideoPresenterTest, ::testing::Values(PixelFormat::I420, PixelFormat::NV12));

} // namespace
