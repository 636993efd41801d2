// Pinch and pan recognisers fed by a window: when they begin, what they
// measure, and how they end.
#include "vrq/platform/views/PanGestureRecognizer.h"
#include "vrq/platform/views/PinchGestureRecognizer.h"
#include "vrq/platform/views/Window.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using vrq::GestureState;
using vrq::Point;
using vrq::Rect;

// A window with a view filling it that takes many touches; each recogniser
// records its states, and what the test asks of it, as its action runs.
class GestureRecognizerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_view->setMultipleTouchEnabled(true);
        m_window->addSubview(m_view);
    }
    void down(std::uint64_t id, Point at) { m_window->touchDown(id, at, m_time += 0.01); }
    void move(std::uint64_t id, Point at) { m_window->touchMove(id, at, m_time += 0.01); }
    void up(std::uint64_t id, Point at) { m_window->touchUp(id, at, m_time += 0.01); }
    vrq::GestureRecognizer::Action recordState()
    {
        return [this](vrq::GestureRecognizer& r) { m_states.push_back(r.state()); };
    }

    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(Rect{{0, 0}, {800, 600}});
    std::shared_ptr<vrq::View> m_view = std::make_shared<vrq::View>(Rect{{0, 0}, {800, 600}});
    std::vector<GestureState> m_states;
    std::vector<double> m_values;
    double m_time = 1;
};

TEST_F(GestureRecognizerTest, APinchMeasuresTheFingersDistanceFromWhereTheSecondCameDown)
{
    auto pinch = std::make_shared<vrq::PinchGestureRecognizer>([this](vrq::GestureRecognizer& r) {
        m_states.push_back(r.state());
        m_values.push_back(static_cast<vrq::PinchGestureRecognizer&>(r).scale());
    });
    m_view->addGestureRecognizer(pinch);
    down(1, {100, 300});
    move(1, {90, 300}); // one finger: nothing to pinch
    down(2, {190, 300}); // 100 points apart
    move(2, {191, 300}); // within the slop
    EXPECT_TRUE(m_states.empty());
    move(2, {210, 300});
    move(2, {240, 300});
    up(2, {240, 300});
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began, GestureState::Changed, GestureState::Ended}));
    EXPECT_EQ(m_values, (std::vector<double>{1.2, 1.5, 1.5}));
    move(1, {50, 300});
    up(1, {50, 300});
    EXPECT_EQ(m_states.size(), 3u) << "over until every finger lifted";
    EXPECT_EQ(pinch->state(), GestureState::Possible);
    EXPECT_EQ(pinch->scale(), 1.0);
}

TEST_F(GestureRecognizerTest, APinchScaleSetBackToOneGivesTheStepSinceThen)
{
    auto pinch = std::make_shared<vrq::PinchGestureRecognizer>([this](vrq::GestureRecognizer& r) {
        auto& recognizer = static_cast<vrq::PinchGestureRecognizer&>(r);
        m_values.push_back(recognizer.scale());
        recognizer.setScale(1);
        EXPECT_EQ(recognizer.scale(), 1.0);
    });
    m_view->addGestureRecognizer(pinch);
    down(1, {100, 300});
    down(2, {200, 300});
    move(2, {220, 300}); // 120 apart
    move(2, {280, 300}); // 180 apart
    move(1, {190, 300}); // 90 apart
    EXPECT_EQ(m_values, (std::vector<double>{1.2, 1.5, 0.5}));
}

TEST_F(GestureRecognizerTest, APinchIsCancelledWithItsTouches)
{
    auto pinch = std::make_shared<vrq::PinchGestureRecognizer>(recordState());
    m_view->addGestureRecognizer(pinch);
    down(1, {100, 300});
    down(2, {200, 300});
    move(2, {250, 300});
    m_window->cancelAllTouches(m_time += 0.01);
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began, GestureState::Cancelled}));
    EXPECT_EQ(pinch->state(), GestureState::Possible);
}

// A two-finger pan in a view shown twice as big as the window's points.
class TwoFingerPanTest : public GestureRecognizerTest {
protected:
    void SetUp() override
    {
        GestureRecognizerTest::SetUp();
        m_view->setTransform(vrq::AffineTransform::makeScale(2, 2));
        m_pan->setMinimumNumberOfTouches(2);
        m_pan->setMaximumNumberOfTouches(2);
        m_view->addGestureRecognizer(m_pan);
    }
    Point travel() const { return m_pan->translationInView(nullptr); }
    Point travelInView() const { return m_pan->translationInView(m_view.get()); }

    std::shared_ptr<vrq::PanGestureRecognizer> m_pan = std::make_shared<vrq::PanGestureRecognizer>(recordState());
};

TEST_F(TwoFingerPanTest, BeginsWithTwoFingersAndMeasuresInTheViewsUnits)
{
    down(1, {100, 100});
    move(1, {160, 100}); // one finger is not a pan however far it goes
    EXPECT_TRUE(m_states.empty());
    down(2, {300, 100}); // the centroid (230, 100) is where the pan starts
    move(1, {172, 100}); // the centroid moves 6
    EXPECT_TRUE(m_states.empty());
    EXPECT_EQ(travel(), (Point{6, 0}));
    move(2, {312, 100}); // and 12
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began}));
    EXPECT_EQ(travel(), (Point{12, 0}));
    EXPECT_EQ(travelInView(), (Point{6, 0})) << "half the window's distance in a view scaled twice";

    m_pan->setTranslation({}, m_view.get());
    EXPECT_EQ(travelInView(), (Point{}));
    move(1, {172, 120});
    move(2, {312, 120});
    EXPECT_EQ(travel(), (Point{0, 20}));
    EXPECT_EQ(travelInView(), (Point{0, 10}));
    m_pan->setTranslation({5, 5}, m_view.get());
    EXPECT_EQ(travel(), (Point{10, 10}));

    up(2, {312, 120}); // one finger left: out of the range
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began, GestureState::Changed, GestureState::Changed,
                                                   GestureState::Ended}));
    up(1, {172, 120});
    EXPECT_EQ(m_pan->state(), GestureState::Possible);
    EXPECT_EQ(travel(), (Point{})) << "nothing carries over to the next pan";
}

TEST_F(TwoFingerPanTest, AThirdFingerEndsItAndACancelCancelsIt)
{
    down(1, {100, 100});
    down(2, {200, 100});
    move(1, {130, 100});
    ASSERT_EQ(m_states, (std::vector<GestureState>{GestureState::Began}));
    down(3, {400, 400});
    EXPECT_EQ(m_states.back(), GestureState::Ended);
    m_window->cancelAllTouches(m_time += 0.01);
    EXPECT_EQ(m_pan->state(), GestureState::Possible);

    m_states.clear();
    down(4, {100, 100});
    down(5, {200, 100});
    move(5, {230, 100});
    m_window->touchCancel(4, m_time += 0.01);
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began, GestureState::Cancelled}));
    EXPECT_EQ(m_pan->numberOfTouches(), 1u);
    up(5, {230, 100});
    EXPECT_EQ(m_pan->state(), GestureState::Possible);
}

TEST_F(GestureRecognizerTest, APanKeepsItsTranslationWhenFingersJoinOrLift)
{
    auto pan = std::make_shared<vrq::PanGestureRecognizer>(recordState());
    m_view->addGestureRecognizer(pan);
    down(1, {100, 100});
    move(1, {120, 100});
    ASSERT_EQ(m_states, (std::vector<GestureState>{GestureState::Began}));
    down(2, {300, 300}); // the centroid jumps, the translation does not
    EXPECT_EQ(pan->translationInView(nullptr), (Point{20, 0}));
    move(2, {310, 300});
    EXPECT_EQ(pan->translationInView(nullptr), (Point{25, 0}));
    up(1, {120, 100});
    EXPECT_EQ(pan->translationInView(nullptr), (Point{25, 0}));
    EXPECT_EQ(m_states.back(), GestureState::Changed) << "one finger is still a pan";
    move(2, {320, 300});
    EXPECT_EQ(pan->translationInView(nullptr), (Point{35, 0}));
}

TEST_F(GestureRecognizerTest, DisablingARunningRecognizerCancelsIt)
{
    auto pan = std::make_shared<vrq::PanGestureRecognizer>(recordState());
    m_view->addGestureRecognizer(pan);
    down(1, {100, 100});
    move(1, {150, 100});
    pan->setEnabled(false);
    move(1, {200, 100});
    EXPECT_EQ(m_states, (std::vector<GestureState>{GestureState::Began, GestureState::Cancelled}));
    EXPECT_EQ(pan->state(), GestureState::Possible);
    EXPECT_EQ(pan->numberOfTouches(), 0u);
}

} // namespace
