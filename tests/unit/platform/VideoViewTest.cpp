#include "vrq/platform/views/VideoView.h"

#include "support/TestFrames.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using vrq::rtc::PixelFormat;

struct SizeCounter : vrq::VideoViewDelegate {
    void videoViewDidChangeVideoSize(vrq::VideoView&, vrq::Size) override { ++changes; }
    void videoViewIsFirstFrame(vrq::VideoView&, bool) override {}
    std::atomic<int> changes{0};
};

TEST(VideoViewTest, KeepsTheLatestFrameOnly)
{
    vrq::VideoView view;
    std::vector<std::weak_ptr<const vrq::rtc::VideoFrame>> delivered;
    for (int i = 0; i < 4; ++i) {
        auto frame = vrqtest::greyFrame(64, 36);
        delivered.push_back(frame);
        view.onFrame(std::move(frame));
    }
    for (std::size_t i = 0; i + 1 < delivered.size(); ++i)
        EXPECT_TRUE(delivered[i].expired()) << "frame " << i << " is still held";
    EXPECT_EQ(delivered.back().lock(), view.latestFrame());
}

// A reader keeps and reads frames while the streaming thread replaces them
// with frames of another size: every frame read is whole and unchanged, its
// memory alive for as long as the reader holds it.
TEST(VideoViewTest, AFrameReadWhileTheNextArrivesStaysWhole)
{
    constexpr int kFrames = 300;
    vrq::VideoView view;
    SizeCounter sizes;
    view.setVideoViewDelegate(&sizes);
    std::atomic<bool> done{false};
    std::atomic<int> framesRead{0};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done.load()) {
            const auto frame = view.latestFrame();
            if (!frame)
                continue;
            const std::uint8_t expected = frame->width() == 642 ? 40 : 200;
            const auto& luma = frame->plane(0);
            for (int row = 0; row < frame->height(); ++row) {
                for (int column = 0; column < frame->width(); ++column)
                    torn += luma.data[row * luma.stride + column] != expected ? 1 : 0;
            }
            ++framesRead;
        }
    });
    for (int i = 0; i < kFrames; ++i) {
        view.onFrame(i % 2 == 0 ? vrqtest::makeFrame(PixelFormat::I420, 642, 362, 704, 40, 128, 128)
                                : vrqtest::makeFrame(PixelFormat::NV12, 320, 180, 320, 200, 128, 128));
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn.load(), 0);
    EXPECT_GT(framesRead.load(), 0);
    EXPECT_EQ(sizes.changes.load(), kFrames) << "every frame changed the size";
    EXPECT_EQ(view.videoSize(), (vrq::Size{320, 180}));
    EXPECT_EQ(view.framesReceived(), static_cast<std::uint64_t>(kFrames));
}

} // namespace
