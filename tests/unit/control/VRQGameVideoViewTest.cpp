#include "vrq/control/VRQGameVideoView.h"

#include "support/TestFrames.h"
#include "vrq/platform/views/PanGestureRecognizer.h"
#include "vrq/platform/views/Window.h"

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

} // namespace

namespace {

// Two fingers on a 1000 x 600 video view filling its window, pinch on.
class VideoViewGestureTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_window->addSubview(m_view);
        m_view->setEnablePinch(true);
    }
    void fingers(vrq::Point a, vrq::Point b)
    {
        m_time += 0.02;
        if (!m_down) {
            m_window->touchDown(1, a, m_time);
            m_window->touchDown(2, b, m_time);
            m_down = true;
            return;
        }
        m_window->touchMove(1, a, m_time);
        m_window->touchMove(2, b, m_time);
    }
    void lift()
    {
        m_window->touchUp(1, {}, m_time += 0.02);
        m_window->touchUp(2, {}, m_time);
        m_down = false;
    }

    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {1000, 600}});
    std::shared_ptr<VRQGameVideoView> m_view = std::make_shared<VRQGameVideoView>(vrq::Rect{{0, 0}, {1000, 600}});
    double m_time = 1;
    bool m_down = false;
};

TEST_F(VideoViewGestureTest, TheTrackedZoomStopsAtThreeWhileThePictureFollowsTheFingers)
{
    fingers({400, 300}, {500, 300});
    fingers({400, 300}, {650, 300}); // 100 to 250 points apart
    EXPECT_DOUBLE_EQ(m_view->scaleValue(), 2.5);
    fingers({400, 300}, {750, 300}); // a further 1.4: 3.5 clamped to 3
    EXPECT_DOUBLE_EQ(m_view->scaleValue(), 3.0);
    EXPECT_DOUBLE_EQ(m_view->transform().a, 3.5) << "the transform takes the gesture's own factor";
    lift();
}

TEST_F(VideoViewGestureTest, PinchingBelowTheWholePictureSnapsBack)
{
    fingers({400, 300}, {500, 300});
    fingers({400, 300}, {600, 300});
    EXPECT_DOUBLE_EQ(m_view->scaleValue(), 2.0);
    fingers({400, 300}, {430, 300}); // 0.15 of the last step: below 1 in all
    EXPECT_DOUBLE_EQ(m_view->scaleValue(), 1.0);
    // Unzoomed (the two-finger drag may still have moved it).
    EXPECT_DOUBLE_EQ(m_view->transform().a, 1.0);
    EXPECT_DOUBLE_EQ(m_view->transform().d, 1.0);
    lift();
}

TEST_F(VideoViewGestureTest, ATwoFingerDragMovesByWholePointsOnly)
{
    fingers({100, 100}, {200, 100});
    fingers({111, 100}, {211, 100}); // the drag begins
    fingers({111.6, 100}, {211.6, 100});
    EXPECT_DOUBLE_EQ(m_view->transform().tx, 0) << "0.6 of a point waits";
    fingers({112.2, 100}, {212.2, 100});
    EXPECT_NEAR(m_view->transform().tx, 1.2, 1e-9) << "and counts with the next";
    lift();
}

TEST_F(VideoViewGestureTest, PinchTogglesAddTheRecognisersOnceAndRemoveThemAll)
{
    EXPECT_EQ(m_view->gestureRecognizers().size(), 2u);
    m_view->setEnablePinch(true);
    EXPECT_EQ(m_view->gestureRecognizers().size(), 2u);
    m_view->addGestureRecognizer(std::make_shared<vrq::PanGestureRecognizer>([](vrq::GestureRecognizer&) {}));
    m_view->setEnablePinch(false);
    EXPECT_TRUE(m_view->gestureRecognizers().empty()) << "also one added by someone else";
    fingers({400, 300}, {500, 300});
    fingers({400, 300}, {700, 300});
    EXPECT_DOUBLE_EQ(m_view->scaleValue(), 1.0);
    lift();
}

} // namespace
