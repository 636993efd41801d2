#include "vrq/platform/engine/RtcVideoFrame.h"

#include "support/TestFrames.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <vector>

namespace {

using vrq::rtc::ColorMatrix;
using vrq::rtc::PixelFormat;
using vrq::rtc::VideoFrame;

struct Conversion {
    PixelFormat format;
    ColorMatrix matrix;
    bool fullRange;
    std::uint8_t y, u, v;
    std::array<int, 3> rgb;
};

class VideoFrameConversionTest : public ::testing::TestWithParam<Conversion> {};

// A 642x362 frame with padded rows: every pixel converts to the same colour,
// which a reader who ignored the strides or the chroma rows would not get.
TEST_P(VideoFrameConversionTest, EveryPixelOfAPaddedOddSizedFrameHasTheColour)
{
    const Conversion& c = GetParam();
    auto frame = vrqtest::makeFrame(c.format, 642, 362, 704, c.y, c.u, c.v);
    vrq::rtc::VideoFrameInfo info = frame->info();
    info.matrix = c.matrix;
    info.fullRange = c.fullRange;
    std::array<VideoFrame::Plane, 3> planes{frame->plane(0), frame->plane(1), frame->plane(2)};
    const VideoFrame converted(info, planes, frame);

    const std::vector<std::uint8_t> rgba = converted.toRgba();
    ASSERT_EQ(rgba.size(), 642u * 362u * 4u);
    int wrong = 0;
    for (std::size_t i = 0; i < rgba.size(); i += 4) {
        for (int channel = 0; channel < 3; ++channel)
            wrong += std::abs(rgba[i + static_cast<std::size_t>(channel)] - c.rgb[static_cast<std::size_t>(channel)]) > 1 ? 1 : 0;
        wrong += rgba[i + 3] != 255 ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0) << "first pixel " << int(rgba[0]) << "," << int(rgba[1]) << "," << int(rgba[2]);
}

INSTANTIATE_TEST_SUITE_P(
    Colours, VideoFrameConversionTest,
    ::testing::Values(Conversion{PixelFormat::I420, ColorMatrix::Bt601, false, 235, 128, 128, {255, 255, 255}},
                      Conversion{PixelFormat::I420, ColorMatrix::Bt601, false, 16, 128, 128, {0, 0, 0}},
                      Conversion{PixelFormat::I420, ColorMatrix::Bt601, false, 81, 90, 240, {254, 0, 0}},
                      Conversion{PixelFormat::NV12, ColorMatrix::Bt601, false, 81, 90, 240, {254, 0, 0}},
                      Conversion{PixelFormat::I420, ColorMatrix::Bt709, false, 81, 90, 240, {255, 24, 0}},
                      Conversion{PixelFormat::NV12, ColorMatrix::Bt601, true, 76, 85, 255, {254, 0, 0}},
                      Conversion{PixelFormat::I420, ColorMatrix::Bt709, true, 128, 128, 200, {241, 94, 128}}));

// Each chroma sample colours the 2x2 pixels it covers; in an odd-sized frame
// the last column and row have chroma samples of their own.
TEST(VideoFrameTest, ChromaSamplesCoverTwoByTwoPixelsUpToTheOddEdges)
{
    constexpr int kWidth = 5, kHeight = 3, kChromaWidth = 3, kChromaRows = 2;
    EXPECT_EQ(vrqtest::greyFrame(kWidth, kHeight)->planeRowBytes(1), kChromaWidth);
    EXPECT_EQ(vrqtest::greyFrame(kWidth, kHeight)->planeRows(2), kChromaRows);
    auto luma = std::make_shared<std::vector<std::uint8_t>>(kWidth * kHeight, 128);
    auto u = std::make_shared<std::vector<std::uint8_t>>(kChromaWidth * kChromaRows, 128);
    auto v = std::make_shared<std::vector<std::uint8_t>>();
    for (int i = 0; i < kChromaWidth * kChromaRows; ++i)
        v->push_back(static_cast<std::uint8_t>(128 + 10 * i));
    vrq::rtc::VideoFrameInfo info;
    info.width = kWidth;
    info.height = kHeight;
    info.fullRange = true;
    const VideoFrame frame(info, {{{luma->data(), kWidth}, {u->data(), kChromaWidth}, {v->data(), kChromaWidth}}},
                           std::make_shared<std::array<std::shared_ptr<void>, 3>>(std::array<std::shared_ptr<void>, 3>{luma, u, v}));
    const auto rgba = frame.toRgba();
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int sample = (y / 2) * kChromaWidth + x / 2;
            const int red = std::min(255, 128 + (91881 * 10 * sample + 32768) / 65536); // 1.402 (V - 128), full range
            EXPECT_NEAR(rgba[static_cast<std::size_t>((y * kWidth + x) * 4)], red, 1) << x << "," << y;
        }
    }
}

TEST(VideoFrameTest, PlaneGeometryFollowsTheFormat)
{
    auto i420 = vrqtest::makeFrame(PixelFormat::I420, 641, 361, 641, 0, 0, 0);
    auto nv12 = vrqtest::makeFrame(PixelFormat::NV12, 641, 361, 641, 0, 0, 0);
    EXPECT_EQ(i420->planeCount(), 3);
    EXPECT_EQ(nv12->planeCount(), 2);
    EXPECT_EQ(i420->planeRowBytes(0), 641);
    EXPECT_EQ(i420->planeRowBytes(1), 321);
    EXPECT_EQ(nv12->planeRowBytes(1), 642);
    EXPECT_EQ(nv12->planeRows(1), 181);
    EXPECT_EQ(nv12->planeRows(2), 0);
    EXPECT_EQ(nv12->plane(2).data, nullptr);
}

} // namespace
