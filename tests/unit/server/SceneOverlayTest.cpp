#include "SceneOverlay.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using vrqserver::SceneOverlay;

namespace {

// An I420 frame of one grey level, with rows padded past the width as encoders' buffers often are.
struct Frame {
    Frame(int width, int height, std::uint8_t grey)
        : lumaStride(width + 16)
        , chromaStride((width + 1) / 2 + 8)
        , luma(static_cast<std::size_t>(lumaStride * height), grey)
        , u(static_cast<std::size_t>(chromaStride * ((height + 1) / 2)), 90)
        , v(u)
    {
        canvas.width = width;
        canvas.height = height;
        canvas.planes = {luma.data(), u.data(), v.data()};
        canvas.strides = {lumaStride, chromaStride, chromaStride};
    }
    std::uint8_t at(int x, int y) const { return luma[static_cast<std::size_t>(y * lumaStride + x)]; }

    int lumaStride;
    int chromaStride;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> u;
    std::vector<std::uint8_t> v;
    vrq::rtc::VideoCanvas canvas;
};

} // namespace

TEST(SceneOverlayTest, DrawsTheTextOnADarkBoxInTheCornerAndNothingElse)
{
    SceneOverlay overlay;
    Frame frame(320, 240, 128);
    const auto untouched = frame.luma;
    overlay.draw(frame.canvas);
    EXPECT_EQ(frame.luma, untouched) << "an empty text draws nothing";

    overlay.setText("keyboard 65 down");
    overlay.draw(frame.canvas);
    int ink = 0;
    int paper = 0;
    for (int y = 8; y < 19; ++y)
        for (int x = 8; x < 8 + 16 * 6; ++x) {
            ink += frame.at(x, y) > 200 ? 1 : 0;
            paper += frame.at(x, y) < 40 ? 1 : 0;
        }
    EXPECT_GT(ink, 100);
    EXPECT_GT(paper, ink);
    EXPECT_EQ(frame.at(200, 100), 128) << "outside the box";
    EXPECT_EQ(frame.at(0, 0), 128) << "the margin";
    EXPECT_EQ(frame.u[static_cast<std::size_t>(5 * frame.chromaStride + 10)], 128) << "the box is grey, not tinted";
    // The padding past each row's width belongs to nobody.
    for (int y = 0; y < 240; ++y)
        for (int x = 320; x < frame.lumaStride; ++x)
            ASSERT_EQ(frame.at(x, y), 128);
}

TEST(SceneOverlayTest, ClipsToSmallFramesAndCutsLongTexts)
{
    SceneOverlay overlay;
    overlay.setText(std::string(100, 'W'));
    EXPECT_EQ(overlay.text().size(), SceneOverlay::kMaxLength);
    for (const auto& [width, height] : {std::pair{1, 1}, std::pair{12, 9}, std::pair{64, 16}}) {
        Frame frame(width, height, 128);
        overlay.draw(frame.canvas); // AddressSanitizer would report any write outside the planes
        for (int y = 0; y < height; ++y)
            for (int x = width; x < frame.lumaStride; ++x)
                ASSERT_EQ(frame.at(x, y), 128) << width << "x" << height;
    }
}
