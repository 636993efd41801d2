#include "PointerState.h"

#include "MessageEdits.h"

#include <gtest/gtest.h>

#include <limits>

using nlohmann::json;
using vrqserver::PointerState;

namespace {

using vrqtest::with;
using vrqtest::without;

using Finger = PointerState::Finger;
using Point = PointerState::Point;

json touch(int finger, int event, double x, double y, double width = 400, double height = 200)
{
    return {{"type", "event_touch"}, {"touch_id", 0}, {"finger_id", finger}, {"event_type", event}, {"x", x},
            {"y", y}, {"width", width}, {"height", height}, {"pressure", 1}, {"timestamp", 12345}};
}

json move(double x, double y, bool relative = false)
{
    return {{"type", relative ? "mousedeltamove_v2" : "mousemove_v2"}, {"x", x}, {"y", y}};
}

json button(const char* type, bool down)
{
    return {{"type", type}, {"down", down}};
}

} // namespace

TEST(PointerStateTest, StartsWithNothing)
{
    const PointerState state;
    const auto snapshot = state.snapshot();
    EXPECT_TRUE(snapshot.fingers.empty());
    EXPECT_FALSE(snapshot.pointer);
    EXPECT_EQ(snapshot.buttons, PointerState::Buttons{});
    EXPECT_FALSE(snapshot.mouseSeen);
    EXPECT_EQ(PointerState::describe(snapshot),
              json::parse(R"({"fingers":[],"pointer":null,"buttons":{"left":false,"right":false,"middle":false}})"));
}

TEST(PointerStateTest, TwoFingersGoDownMoveAndLiftInViewPointsNormalisedToThePicture)
{
    PointerState state;
    EXPECT_TRUE(state.apply(touch(3, 0, 100, 50)));
    EXPECT_TRUE(state.apply(touch(1, 0, 400, 0)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{1, {1.0, 0.0}}, {3, {0.25, 0.25}}})) << "listed by id";

    EXPECT_TRUE(state.apply(touch(3, 1, 200, 150)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{1, {1.0, 0.0}}, {3, {0.5, 0.75}}}));

    EXPECT_TRUE(state.apply(touch(1, 2, 300, 100)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{3, {0.5, 0.75}}}));
    EXPECT_FALSE(state.apply(touch(1, 1, 10, 10))) << "a lifted finger does not move";
    EXPECT_TRUE(state.apply(touch(3, 2, 200, 150)));
    EXPECT_TRUE(state.snapshot().fingers.empty());
    EXPECT_FALSE(state.snapshot().mouseSeen) << "touches are not the mouse";
}

TEST(PointerStateTest, ALiftedFingerIdIsReusedAndPositionsOutsideTheViewAreHeldToIt)
{
    PointerState state;
    ASSERT_TRUE(state.apply(touch(0, 0, 40, 20)));
    ASSERT_TRUE(state.apply(touch(0, 2, 40, 20)));
    ASSERT_TRUE(state.apply(touch(0, 0, 360, 180, 400, 200)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{0, {0.9, 0.9}}}));
    ASSERT_TRUE(state.apply(touch(0, 1, -50, 900)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{0, {0.0, 1.0}}}));
    EXPECT_TRUE(state.apply(touch(31, 0, 2.0, 1.0, 4.0, 2.0))) << "the highest finger id";
    EXPECT_EQ(state.snapshot().fingers.size(), 2u);
    EXPECT_EQ(PointerState::describe(state.snapshot())["fingers"],
              json::parse(R"([{"id":0,"x":0.0,"y":1.0},{"id":31,"x":0.5,"y":0.5}])"));
}

TEST(PointerStateTest, MalformedInputIsIgnoredWithoutThrowing)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const json down = touch(2, 0, 100, 50);
    const json cases[] = {
        json(),
        json::array({down}),
        json("event_touch"),
        without(down, "type"),
        with(down, "type", 7),
        with(down, "type", "event_touched"),
        without(down, "finger_id"),
        without(down, "event_type"),
        without(down, "x"),
        without(down, "y"),
        without(down, "width"),
        without(down, "height"),
        with(down, "finger_id", "2"),
        with(down, "finger_id", -1),
        with(down, "finger_id", 32),
        with(down, "finger_id", 1e12),
        with(down, "finger_id", 2.5),
        with(down, "finger_id", true),
        with(down, "event_type", 3),
        with(down, "event_type", -1),
        with(down, "event_type", 0.5),
        with(down, "event_type", nullptr),
        with(down, "x", "100"),
        with(down, "x", nan),
        with(down, "y", inf),
        with(down, "width", 0),
        with(down, "width", -400),
        with(down, "height", 0),
        with(down, "height", -inf),
        with(down, "width", nan),
        with(down, "height", json::object()),
        without(move(1, 2), "x"),
        without(move(1, 2), "y"),
        move(nan, 2),
        move(1, inf),
        json{{"type", "mousedeltamove_v2"}, {"x", "1"}, {"y", 2}},
        move(-inf, 2, true),
        json{{"type", "mousemove_v2"}, {"x", true}, {"y", 2}},
        without(button("mouseright", true), "down"),
        json{{"type", "mouseleft"}, {"down", 1}},
        json{{"type", "mousemiddle"}, {"down", "true"}},
        json{{"type", "keyboard"}, {"key", 65}, {"down", true}},
        json{{"type", "mousescroll"}, {"delta", 1}},
    };
    PointerState state;
    for (const json& message : cases) {
        bool taken = true;
        EXPECT_NO_THROW(taken = state.apply(message)) << message.dump();
        EXPECT_FALSE(taken) << message.dump();
    }
    const auto snapshot = state.snapshot();
    EXPECT_TRUE(snapshot.fingers.empty());
    EXPECT_FALSE(snapshot.pointer);
    EXPECT_EQ(snapshot.buttons, PointerState::Buttons{});
    EXPECT_FALSE(snapshot.mouseSeen);

    // A malformed move of a finger that is down leaves it where it was.
    ASSERT_TRUE(state.apply(down));
    EXPECT_FALSE(state.apply(with(touch(2, 1, 300, 100), "height", 0)));
    EXPECT_EQ(state.snapshot().fingers, (std::vector<Finger>{{2, {0.25, 0.25}}}));
}

TEST(PointerStateTest, AbsoluteMovesAreOnTheMouseGridAndRelativeOnesAddToThemHeldToThePicture)
{
    PointerState state;
    EXPECT_TRUE(state.apply(move(2048, 6144)));
    EXPECT_EQ(state.snapshot().pointer, (Point{0.25, 0.75}));
    EXPECT_TRUE(state.snapshot().mouseSeen);
    EXPECT_TRUE(state.apply(move(1024, -2048, true)));
    EXPECT_EQ(state.snapshot().pointer, (Point{0.375, 0.5}));
    EXPECT_TRUE(state.apply(move(-8192, 99999, true)));
    EXPECT_EQ(state.snapshot().pointer, (Point{0.0, 1.0}));
    EXPECT_TRUE(state.apply(move(4096, -4096, true)));
    EXPECT_EQ(state.snapshot().pointer, (Point{0.5, 0.5})) << "held, not remembered past the edge";
    EXPECT_TRUE(state.apply(move(9000, -1)));
    EXPECT_EQ(state.snapshot().pointer, (Point{1.0, 0.0}));
    EXPECT_EQ(PointerState::describe(state.snapshot())["pointer"], json::parse(R"({"x":1.0,"y":0.0})"));
}

TEST(PointerStateTest, ARelativeMoveBeforeAnyPositionStartsFromTheMiddle)
{
    PointerState state;
    EXPECT_TRUE(state.apply(move(819.2, -409.6, true)));
    const auto pointer = state.snapshot().pointer;
    ASSERT_TRUE(pointer);
    EXPECT_DOUBLE_EQ(pointer->x, 0.6);
    EXPECT_DOUBLE_EQ(pointer->y, 0.45);
}

TEST(PointerStateTest, ButtonsGoDownAndUpEachOnItsOwn)
{
    PointerState state;
    EXPECT_TRUE(state.apply(button("mouseleft", true)));
    EXPECT_TRUE(state.snapshot().mouseSeen);
    EXPECT_FALSE(state.snapshot().pointer) << "a press does not place the pointer";
    EXPECT_TRUE(state.apply(button("mousemiddle", true)));
    EXPECT_EQ(state.snapshot().buttons, (PointerState::Buttons{true, false, true}));
    EXPECT_TRUE(state.apply(button("mouseright", true)));
    EXPECT_TRUE(state.apply(button("mouseleft", false)));
    EXPECT_EQ(state.snapshot().buttons, (PointerState::Buttons{false, true, true}));
    EXPECT_EQ(PointerState::describe(state.snapshot())["buttons"],
              json::parse(R"({"left":false,"right":true,"middle":true})"));
    EXPECT_TRUE(state.apply(button("mousemiddle", false)));
    EXPECT_TRUE(state.apply(button("mouseright", false)));
    EXPECT_EQ(state.snapshot().buttons, PointerState::Buttons{});
}
