#include "vrq/control/VRQGameVideoView.h"

#include "support/TestFrames.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct RecordingDelegate : vrq::VideoViewDelegate {
    void videoViewDidChangeVideoSize(vrq::VideoView&, vrq::Size size) override { sizes.push_back(size); }
    void videoViewIsFirstFrame(vrq::VideoView&, bool first) override { firstFrames += first ? 1 : 0; }
    std::vector<vrq::Size> sizes;
    int firstFrames = 0;
};

std::shared_ptr<const vrq::rtc::VideoFrame> frameOf(int width, int height)
{
    return vrqtest::greyFrame(width, height);
}

TEST(VRQGameVideoViewTest, AnnouncesTheFirstFrameOnceAndEverySizeChange)
{
    VRQGameVideoView view;
    RecordingDelegate delegate;
    view.setVideoViewDelegate(&delegate);
    // Frames arrive on a streaming thread, not the main one.
    std::thread([&] {
        view.onFrame(frameOf(634, 358)); // sizes need not be multiples of 16
        view.onFrame(frameOf(634, 358));
        view.onFrame(frameOf(1280, 720));
    }).join();

    EXPECT_EQ(delegate.firstFrames, 1);
    ASSERT_EQ(delegate.sizes.size(), 2u);
    EXPECT_EQ(delegate.sizes[0], (vrq::Size{634, 358}));
    EXPECT_EQ(delegate.sizes[1], (vrq::Size{1280, 720}));
    EXPECT_EQ(view.videoSize(), (vrq::Size{1280, 720}));
    EXPECT_EQ(view.latestFrame()->width(), 1280);
    EXPECT_EQ(view.framesReceived(), 3u);

    view.resetFirstFrame();
    view.onFrame(frameOf(1280, 720));
    EXPECT_EQ(delegate.firstFrames, 2) << "a new stream's first frame is announced again";
    EXPECT_EQ(delegate.sizes.size(), 2u);
}

TEST(VRQGameVideoViewTest, StartsWithTheDefaultZoomSettings)
{
    VRQGameVideoView view;
    EXPECT_EQ(view.scaleValue(), 1.0);
    EXPECT_FALSE(view.enablePinch());
    EXPECT_EQ(view.moveInsets(), (vrq::EdgeInsets{100, 50, 50, 100}));
    EXPECT_EQ(view.videoOrientation(), 1);
}

TEST(ViewTest, FrameHelpersKeepTheRestOfTheFrame)
{
    auto parent = std::make_shared<vrq::View>(vrq::Rect{{0, 0}, {400, 300}});
    auto child = std::make_shared<vrq::View>(vrq::Rect{{10, 20}, {100, 50}});
    parent->addSubview(child);
    child->vrq_setCenter({200, 150});
    EXPECT_EQ(child->frame(), (vrq::Rect{{150, 125}, {100, 50}}));
    child->vrq_setW(80);
    child->vrq_setY(5);
    EXPECT_EQ(child->frame(), (vrq::Rect{{150, 5}, {80, 50}}));
    EXPECT_EQ(child->superview(), parent.get());
    child->removeFromSuperview();
    EXPECT_TRUE(parent->subviews().empty());
    EXPECT_EQ(child->superview(), nullptr);
}

} // namespace
