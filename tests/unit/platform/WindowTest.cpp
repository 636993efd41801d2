// The window turning raw finger input into touches: which view gets each
// touch, what views without multiple touch get, and how recognisers above a
// view take its touches.
#include "vrq/platform/views/GestureRecognizer.h"
#include "vrq/platform/views/Window.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;
using vrq::GestureState;
using vrq::Point;
using vrq::Rect;
using vrq::TouchPhase;
using vrq::TouchSet;
using vrq::View;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Logs each delivery as "name phase ids", checks that every touch handed
// over is in the phase of the call, and keeps where the last one was.
class RecordingView : public View {
public:
    RecordingView(std::string name, Rect frame, Lines& log)
        : View(frame)
        , m_name(std::move(name))
        , m_log(log)
    {
    }

    void touchesBegan(const TouchSet& touches, const vrq::Event& event) override
    {
        record("began", TouchPhase::Began, touches, event);
    }
    void touchesMoved(const TouchSet& touches, const vrq::Event& event) override
    {
        record("moved", TouchPhase::Moved, touches, event);
    }
    void touchesEnded(const TouchSet& touches, const vrq::Event& event) override
    {
        record("ended", TouchPhase::Ended, touches, event);
    }
    void touchesCancelled(const TouchSet& touches, const vrq::Event& event) override
    {
        record("cancelled", TouchPhase::Cancelled, touches, event);
    }

    std::function<void(const TouchSet&, const vrq::Event&)> inspect;
    Point lastLocation;
    Point lastPreviousLocation;

private:
    void record(const char* what, TouchPhase phase, const TouchSet& touches, const vrq::Event& event)
    {
        std::string line = m_name + " " + what + " ";
        for (const auto& touch : touches) {
            EXPECT_EQ(touch->phase(), phase) << line << touch->identity();
            EXPECT_EQ(touch->view().get(), this);
            line += std::to_string(touch->identity()) + (touch == touches.back() ? "" : ",");
        }
        m_log.push_back(line);
        lastLocation = touches.back()->locationInView(this);
        lastPreviousLocation = touches.back()->previousLocationInView(this);
        if (inspect)
            inspect(touches, event);
    }

    std::string m_name;
    Lines& m_log;
};

// Recognises at its first move; ends when its last touch lifts.
class FirstMoveRecognizer : public vrq::GestureRecognizer {
public:
    using GestureRecognizer::GestureRecognizer;

protected:
    void touchesChanged(TouchPhase phase) override
    {
        const bool running = state() == GestureState::Began || state() == GestureState::Changed;
        if (phase == TouchPhase::Moved)
            setState(running ? GestureState::Changed : GestureState::Began);
        else if (running && phase == TouchPhase::Cancelled)
            setState(GestureState::Cancelled);
        else if (running && phase == TouchPhase::Ended && remainingTouches().empty())
            setState(GestureState::Ended);
    }
};

vrq::GestureRecognizer::Action recordingInto(std::vector<GestureState>& states)
{
    return [&states](vrq::GestureRecognizer& r) { states.push_back(r.state()); };
}

// Follows touches and never recognises.
class WatchingRecognizer : public vrq::GestureRecognizer {
public:
    WatchingRecognizer()
        : GestureRecognizer(nullptr)
    {
    }

protected:
    void touchesChanged(TouchPhase) override {}
};

class WindowTest : public ::testing::Test {
protected:
    std::shared_ptr<RecordingView> addView(const std::string& name, Rect frame, View* parent = nullptr)
    {
        auto view = std::make_shared<RecordingView>(name, frame, m_log);
        (parent ? parent : m_window.get())->addSubview(view);
        return view;
    }
    void down(std::uint64_t id, Point at) { m_window->touchDown(id, at, m_time += 0.01); }
    void move(std::uint64_t id, Point at) { m_window->touchMove(id, at, m_time += 0.01); }
    void up(std::uint64_t id, Point at) { m_window->touchUp(id, at, m_time += 0.01); }

    Lines m_log;
    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(Rect{{0, 0}, {400, 300}});
    double m_time = 1;
};

TEST_F(WindowTest, ATouchBelongsToItsViewUntilItLiftsWhereverItGoes)
{
    auto a = addView("a", {{0, 0}, {100, 100}});
    auto b = addView("b", {{200, 0}, {100, 100}});
    down(1, {50, 50});
    move(1, {250, 50}); // over b
    EXPECT_EQ(a->lastLocation, (Point{250, 50}));
    EXPECT_EQ(a->lastPreviousLocation, (Point{50, 50}));
    up(1, {260, 60});
    EXPECT_EQ(a->lastLocation, (Point{260, 60}));
    EXPECT_EQ(m_log, (Lines{"a began 1", "a moved 1", "a ended 1"}));
    EXPECT_EQ(m_window->activeTouchCount(), 0u);
    move(1, {10, 10}); // lifted: unknown now
    up(1, {10, 10});
    EXPECT_EQ(m_log.size(), 3u);
}

struct MultipleTouchCase {
    const char* name;
    bool multipleTouch;
    Lines expected;
};

class MultipleTouchTest : public WindowTest, public ::testing::WithParamInterface<MultipleTouchCase> {};

TEST_P(MultipleTouchTest, ASecondFingerReachesOnlyAViewThatTakesMany)
{
    auto a = addView("a", {{0, 0}, {100, 100}});
    a->setMultipleTouchEnabled(GetParam().multipleTouch);
    down(1, {10, 10});
    down(2, {20, 20});
    EXPECT_EQ(m_window->activeTouchCount(), 2u) << "followed either way";
    move(2, {30, 30});
    move(1, {15, 15});
    up(2, {30, 30});
    up(1, {15, 15});
    down(3, {50, 50}); // the view is free again
    EXPECT_EQ(m_log, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Views, MultipleTouchTest,
    ::testing::Values(MultipleTouchCase{"OneTouch", false, {"a began 1", "a moved 1", "a ended 1", "a began 3"}},
                      MultipleTouchCase{"MultipleTouch",
                                        true,
                                        {"a began 1", "a began 2", "a moved 2", "a moved 1", "a ended 2", "a ended 1",
                                         "a began 3"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(WindowTest, TheEventHoldsEveryLiveTouchWithTheUnchangedOnesStationary)
{
    auto a = addView("a", {{0, 0}, {100, 100}});
    auto b = addView("b", {{200, 0}, {100, 100}});
    down(1, {10, 10});
    bool inspected = false;
    b->inspect = [&](const TouchSet& touches, const vrq::Event& event) {
        inspected = true;
        ASSERT_EQ(event.allTouches().size(), 2u);
        EXPECT_EQ(event.touchesForView(b.get()), touches);
        const TouchSet onA = event.touchesForView(a.get());
        ASSERT_EQ(onA.size(), 1u);
        EXPECT_EQ(onA[0]->phase(), TouchPhase::Stationary);
        EXPECT_EQ(event.timestamp(), m_time);
    };
    down(2, {210, 10}); // another view takes its own first touch
    EXPECT_TRUE(inspected);
    EXPECT_EQ(m_log, (Lines{"a began 1", "b began 2"}));
}

struct CoverCase {
    const char* name;
    void (*change)(View& cover);
};

class CoveredViewTest : public WindowTest, public ::testing::WithParamInterface<CoverCase> {};

TEST_P(CoveredViewTest, TouchesGoToWhatIsUnderAViewThatTakesNone)
{
    addView("base", {{0, 0}, {100, 100}});
    auto cover = addView("cover", {{0, 0}, {100, 100}});
    addView("inner", {{25, 25}, {50, 50}}, cover.get());
    GetParam().change(*cover);
    down(1, {50, 50});
    up(1, {50, 50});
    EXPECT_EQ(m_log, (Lines{"base began 1", "base ended 1"}));
}

INSTANTIATE_TEST_SUITE_P(Views, CoveredViewTest,
                         ::testing::Values(CoverCase{"Hidden", [](View& v) { v.setHidden(true); }},
                                           CoverCase{"NotInteractive",
                                                     [](View& v) { v.setUserInteractionEnabled(false); }},
                                           CoverCase{"Transparent", [](View& v) { v.setAlpha(0); }}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(WindowTest, ATouchWhoseViewWasDestroyedIsDropped)
{
    auto watcher = std::make_shared<WatchingRecognizer>();
    m_window->addGestureRecognizer(watcher);
    auto a = addView("a", {{0, 0}, {100, 100}});
    auto b = addView("b", {{200, 0}, {100, 100}});
    down(1, {50, 50});
    down(2, {250, 50});
    EXPECT_EQ(watcher->numberOfTouches(), 2u);

    a->removeFromSuperview();
    a.reset();
    b->removeFromSuperview(); // out of the tree but alive: it keeps its touch
    move(1, {60, 60});
    up(1, {60, 60});
    EXPECT_EQ(m_window->activeTouchCount(), 1u);
    EXPECT_EQ(watcher->numberOfTouches(), 1u) << "the recogniser forgets it too";
    move(2, {260, 60});
    up(2, {260, 60});
    EXPECT_EQ(m_log, (Lines{"a began 1", "b began 2", "b moved 2", "b ended 2"}));
    EXPECT_EQ(m_window->activeTouchCount(), 0u);
}

TEST_F(WindowTest, AViewRemovedByItsOwnHandlerGetsNothingMore)
{
    auto a = addView("a", {{0, 0}, {100, 100}});
    a->inspect = [&a](const TouchSet&, const vrq::Event&) {
        a->removeFromSuperview();
        a.reset(); // the window keeps it alive until the call returns
    };
    down(1, {50, 50});
    move(1, {55, 55});
    up(1, {55, 55});
    EXPECT_EQ(m_log, (Lines{"a began 1"}));
    EXPECT_EQ(m_window->activeTouchCount(), 0u);
}

TEST_F(WindowTest, CancelledTouchesReachTouchesCancelled)
{
    auto a = addView("a", {{0, 0}, {100, 100}});
    auto b = addView("b", {{200, 0}, {100, 100}});
    b->setMultipleTouchEnabled(true);
    down(1, {50, 50});
    down(2, {250, 50});
    down(3, {260, 50});
    m_window->touchCancel(1, m_time += 0.01);
    m_window->touchCancel(1, m_time += 0.01); // gone already
    m_window->touchCancel(99, m_time += 0.01);
    m_window->cancelAllTouches(m_time += 0.01);
    move(2, {250, 60});
    EXPECT_EQ(m_log, (Lines{"a began 1", "b began 2", "b began 3", "a cancelled 1", "b cancelled 2,3"}));
    EXPECT_EQ(m_window->activeTouchCount(), 0u);
}

TEST_F(WindowTest, NumbersThatAreNotFiniteAreIgnored)
{
    addView("a", {{0, 0}, {100, 100}});
    m_window->touchDown(1, {kNaN, 10}, 1);
    m_window->touchDown(1, {10, kInfinity}, 1);
    m_window->touchDown(1, {10, 10}, kNaN);
    EXPECT_EQ(m_window->activeTouchCount(), 0u);
    m_window->touchDown(1, {10, 10}, 2);
    m_window->touchMove(1, {kNaN, kNaN}, 3);
    m_window->touchMove(1, {20, 20}, -kInfinity);
    m_window->touchUp(1, {20, 20}, kInfinity);
    m_window->touchCancel(1, kNaN);
    m_window->cancelAllTouches(kNaN);
    EXPECT_EQ(m_window->activeTouchCount(), 1u);
    m_window->touchUp(1, {20, 20}, 4);
    EXPECT_EQ(m_log, (Lines{"a began 1", "a ended 1"}));
}

struct RecognizerCase {
    const char* name;
    bool cancelsTouchesInView;
    Lines expected;
};

class AncestorRecognizerTest : public WindowTest, public ::testing::WithParamInterface<RecognizerCase> {};

TEST_P(AncestorRecognizerTest, SeesTheTouchesOfSubviewsAndTakesThemWhenItRecognises)
{
    auto container = std::make_shared<View>(Rect{{0, 0}, {200, 200}});
    m_window->addSubview(container);
    auto child = addView("child", {{50, 50}, {100, 100}}, container.get());
    std::vector<GestureState> states;
    auto recognizer = std::make_shared<FirstMoveRecognizer>(recordingInto(states));
    recognizer->setCancelsTouchesInView(GetParam().cancelsTouchesInView);
    container->addGestureRecognizer(recognizer);

    down(1, {100, 100});
    EXPECT_EQ(recognizer->numberOfTouches(), 1u);
    EXPECT_EQ(recognizer->locationInView(child.get()), (Point{50, 50}));
    move(1, {110, 100});
    move(1, {120, 100});
    up(1, {120, 100});
    EXPECT_EQ(m_log, GetParam().expected);
    EXPECT_EQ(states, (std::vector<GestureState>{GestureState::Began, GestureState::Changed, GestureState::Ended}));
    EXPECT_EQ(recognizer->state(), GestureState::Possible);
    EXPECT_EQ(recognizer->numberOfTouches(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Recognizers, AncestorRecognizerTest,
    ::testing::Values(RecognizerCase{"Cancelling", true, {"child began 1", "child cancelled 1"}},
                      RecognizerCase{"LettingThrough",
                                     false,
                                     {"child began 1", "child moved 1", "child moved 1", "child ended 1"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(WindowTest, DisabledRecognizersSeeNothing)
{
    auto child = addView("child", {{0, 0}, {100, 100}});
    std::vector<GestureState> states;
    auto recognizer = std::make_shared<FirstMoveRecognizer>(recordingInto(states));
    m_window->addGestureRecognizer(recognizer);
    recognizer->setEnabled(false);
    down(1, {50, 50});
    move(1, {60, 50});
    EXPECT_TRUE(states.empty());
    EXPECT_EQ(recognizer->numberOfTouches(), 0u);

    recognizer->setEnabled(true);
    down(2, {20, 20}); // the child has its one touch: this one reaches only the recognisers
    move(2, {30, 20});
    ASSERT_FALSE(states.empty());
    EXPECT_EQ(states.front(), GestureState::Began);
    up(1, {60, 50});
    up(2, {30, 20});
    EXPECT_EQ(m_log, (Lines{"child began 1", "child moved 1", "child ended 1"}));
}

} // namespace
