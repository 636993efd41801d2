// The virtual mouse cursor turning touches, fed to a window, into the wire
// messages of the remote mouse, with its timers on a manual clock.
#include "support/InputCapture.h"
#include "support/ManualClock.h"
#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/platform/views/ImageView.h"
#include "vrq/platform/views/Window.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

namespace {

std::shared_ptr<const vrq::Image> solidImage(int size)
{
    return std::make_shared<const vrq::Image>(size, size, std::vector<std::uint8_t>(static_cast<std::size_t>(size * size * 4), 255));
}

class VirtualMouseCursorTest : public ::testing::Test {
protected:
    // A 1024 x 768 window with the cursor view filling it: one point is 8
    // grid units across and 8192 / 768 down.
    void SetUp() override
    {
        m_window->addSubview(m_cursor);
        m_cursor->setCursorIsShow(true); // not first-person, unless a test says so
    }

    void down(vrq::Point at) { m_window->touchDown(1, at, m_time += 0.01); }
    void moveTo(vrq::Point at) { m_window->touchMove(1, at, m_time += 0.01); }
    void up(vrq::Point at) { m_window->touchUp(1, at, m_time += 0.01); }
    Lines sent() const { return m_capture.summary(); }

    vrqtest::ManualClock m_clock;
    vrqtest::InputCapture m_capture;
    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {1024, 768}});
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor =
        std::make_shared<VRQVirtualMouseCursor>(vrq::Rect{{0, 0}, {1024, 768}}, m_capture.controller());
    double m_time = 1;
};

struct GridCase {
    double points;
    double grid;
};

class CursorGridTest : public VirtualMouseCursorTest, public ::testing::WithParamInterface<GridCase> {};

TEST_P(CursorGridTest, ConvertsPointsOfA1024WideParentToTheGrid)
{
    EXPECT_EQ(m_cursor->convertX(GetParam().points), GetParam().grid);
}

INSTANTIATE_TEST_SUITE_P(Edges, CursorGridTest,
                         ::testing::Values(GridCase{512, 4096}, GridCase{1, 8}, GridCase{1.3, 10}, GridCase{0.0011, 0},
                                           GridCase{0.001, 1}, GridCase{0.0005, 1}, GridCase{0, 0}, GridCase{-0.3, -2},
                                           GridCase{-0.5, -4}, GridCase{1024, 8192}));

TEST_F(VirtualMouseCursorTest, AbsoluteModeClampsMovesButNotThePress)
{
    down({1, 384});
    moveTo({1, 385});
    moveTo({2000, -5});
    up({2000, -5});
    EXPECT_EQ(sent(), (Lines{"mousemove_v2 8 4096", "mouseleft down", "mousemove_v2 10 4106", "mousemove_v2 8182 10",
                             "mouseleft up"}));
    EXPECT_EQ(m_cursor->cursorView()->frame().origin, (vrq::Point{2000, -5})) << "the drawn cursor follows the finger";

    m_cursor->setClickTypeIsLeft(false);
    down({512, 384});
    up({512, 384});
    EXPECT_EQ(sent().back(), "mouseright up");
}

TEST_F(VirtualMouseCursorTest, TouchpadTapClicksOnLiftAndALongPressDrags)
{
    m_cursor->setCursorTouchMode(1);
    down({500, 400});
    EXPECT_TRUE(sent().empty()) << "nothing until the finger lifts or holds";
    m_clock.advance(400ms);
    up({500, 400});
    EXPECT_EQ(sent(), (Lines{"mouseleft down", "mouseleft up"}));

    down({500, 400});
    m_clock.advance(500ms);
    EXPECT_EQ(sent().back(), "mouseleft down") << "held for 0.5 s";
    // The cursor starts centred: its 50-point view's origin at (487, 359).
    moveTo({510, 400});
    up({510, 400});
    const Lines all = sent();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[3], "mousemove_v2 3976 3829");
    EXPECT_EQ(all[4], "mouseleft up");
}

TEST_F(VirtualMouseCursorTest, TouchpadMovesCancelTheLongPressAndLiftWithoutAClick)
{
    m_cursor->setCursorTouchMode(1);
    m_cursor->setCursorSensitive(2);
    down({500, 400});
    moveTo({505, 400}); // 10 points with the sensitivity
    m_clock.advance(1s);
    up({505, 400});
    EXPECT_EQ(sent(), (Lines{"mousemove_v2 3976 3829"}));
}

TEST_F(VirtualMouseCursorTest, MovesUnderAGridUnitAddUpUntilOneIsReached)
{
    m_cursor->setCursorTouchMode(2);
    down({500, 400});
    moveTo({500.1, 400}); // 0.8 of a unit: nothing, and the finger's last point stays
    EXPECT_TRUE(sent().empty());
    moveTo({500.2, 400}); // 1.6 units from the last point used
    EXPECT_EQ(sent(), (Lines{"mousemove_v2 3897 3829"}));
    up({500.2, 400});
    m_clock.advance(1s);
    EXPECT_EQ(sent().size(), 1u) << "move-only mode never presses";
}

TEST_F(VirtualMouseCursorTest, FirstPersonModeSendsRelativeMovesOnly)
{
    m_cursor->setCursorIsShow(false);
    EXPECT_TRUE(m_cursor->fpsControlModel());
    EXPECT_TRUE(m_cursor->cursorView()->isHidden());
    for (int mode : {0, 1}) {
        m_cursor->setCursorTouchMode(mode);
        down({500, 400});
        moveTo({503, 397});
        m_clock.advance(1s);
        up({503, 397});
    }
    EXPECT_EQ(sent(), (Lines{"mousedeltamove_v2 24 -32", "mousedeltamove_v2 24 -32"}));
}

TEST_F(VirtualMouseCursorTest, OtherSourcesDriveItAndBadNumbersSendNothing)
{
    m_cursor->setCursorTouchMode(2);
    down({500, 400});
    m_cursor->moveCursorWithDiffX(1, 0);
    EXPECT_EQ(sent(), (Lines{"mousemove_v2 3904 3829"}));
    m_cursor->moveCursorWithDiffX(std::numeric_limits<double>::quiet_NaN(), 0);
    m_cursor->moveCursorWithDiffX(std::numeric_limits<double>::infinity(), 1);
    EXPECT_EQ(sent().size(), 1u);
}

TEST_F(VirtualMouseCursorTest, AParentWithoutSizeGetsNothingSent)
{
    auto empty = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {0, 0}});
    empty->addSubview(m_cursor);
    m_cursor->touchesBegan({}, vrq::Event({}, 0)); // no touch at all
    m_cursor->moveCursorWithDiffX(5, 5);
    m_cursor->setCursorTouchMode(0);
    auto touch = std::make_shared<vrq::Touch>(7, vrq::Point{0, 0}, 1.0);
    touch->setView(m_cursor);
    m_cursor->touchesBegan({touch}, vrq::Event({touch}, 1.0));
    EXPECT_TRUE(sent().empty());
}

TEST_F(VirtualMouseCursorTest, CursorImagesOutsideTheirBoundsLeaveTheOldOne)
{
    auto image = solidImage(16);
    // (-16, -8) grid units with a 16 x 32 unit image: the hotspot on the view's origin.
    m_cursor->setCursorImage(image, {{-16, -8}, {128, 256}});
    const vrq::Rect set = m_cursor->cursorImageView()->frame();
    EXPECT_EQ(set, (vrq::Rect{{-2, -0.75}, {16, 24}}));
    EXPECT_EQ(m_cursor->cursorImageView()->image(), image);

    auto other = solidImage(8);
    for (const vrq::Rect bad : {vrq::Rect{{0, 0}, {0, 10}}, vrq::Rect{{0, 0}, {0.00001, 10}}, vrq::Rect{{-2000, 0}, {10, 10}},
                                vrq::Rect{{0, 0}, {20000, 10}}, vrq::Rect{{std::nan(""), 0}, {10, 10}}}) {
        m_cursor->setCursorImage(other, bad);
        EXPECT_EQ(m_cursor->cursorImageView()->frame(), set) << vrq::stringFromRect(bad);
        EXPECT_EQ(m_cursor->cursorImageView()->image(), image);
    }
    m_cursor->setCursorImage(nullptr, {{0, 0}, {64, 64}});
    EXPECT_EQ(m_cursor->cursorImageView()->image(), image);
}

} // namespace
