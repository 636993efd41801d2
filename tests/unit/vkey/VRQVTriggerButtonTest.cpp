// The analogue trigger: the values it ramps through every 50 ms while held
// and after release, sent from its own queue, on a manual clock.
#include "support/GamepadHarness.h"
#include "support/ManualClock.h"
#include "vrq/VRQVKey/button/VRQVTriggerButton.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using vrqtest::GamepadHarness;
using vrqtest::Keys;
using vrqtest::ManualClock;
using Messages = std::vector<Keys>;

constexpr vrq::Point kOnTrigger{100, 100};

std::string triggerLayout(const char* maxValue, const char* damperStep)
{
    return std::string(R"([{"key":"trigger_rt_max","left":"0","top":"0","width":"200","height":"200","max_value":")") +
           maxValue + R"(","damper_step":")" + damperStep + R"("}])";
}

// One tick of the ramp: moves the clock 50 ms, waits for the one message
// the tick sends on the trigger's queue, and returns what was sent.
Messages tick(GamepadHarness& pad)
{
    const std::size_t before = pad.count();
    ManualClock::advance(50ms, 50ms);
    pad.waitForCount(before + 1);
    return pad.take();
}

// The ramp has ended: its timer is gone, and more time sends nothing.
void expectStopped(GamepadHarness& pad, const VRQVTriggerButton& trigger)
{
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return !trigger.isRamping(); }, 5s)) << "the ramp goes on";
    ManualClock::advance(200ms, 50ms);
    EXPECT_EQ(pad.take(), Messages{});
}

TEST(VRQVTriggerButtonTest, HoldRampsUpByTheStepPerMillisecondToTheMaximum)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "2.55"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    EXPECT_EQ(pad.take(), Messages{}) << "the first value comes with the first tick";
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":127,"down":1})"}})) << "2.55 x 50 ms = 127.5";
    // The value is kept whole between ticks: 127 + 127.5 is 254, and the
    // maximum comes one tick later.
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":254,"down":1})"}}));
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":255,"down":1})"}}));
    expectStopped(pad, *trigger);
}

TEST(VRQVTriggerButtonTest, ReleaseRampsDownFromTheMaximumByTheStepPerMillisecond)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "2.55"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    const Messages full{{R"({"type":"rt","x":255,"down":1})"}};
    Messages last;
    for (int ticks = 0; ticks < 5 && last != full; ++ticks)
        last = tick(pad);
    ASSERT_EQ(last, full) << "held until the maximum";
    expectStopped(pad, *trigger);

    pad.up(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":127,"down":1})"}}));
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":0,"down":0})"}}));
    expectStopped(pad, *trigger);
}

TEST(VRQVTriggerButtonTest, AStepOfTheWholeRangePerTickGoesFullAndBackInOneTickEach)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "5.1"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":255,"down":1})"}}));
    expectStopped(pad, *trigger);
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":0,"down":0})"}}));
    expectStopped(pad, *trigger);
}

// A step of 0 never reaches the maximum: the value 0 goes out at every tick
// while held, and the release ends at its first tick.
TEST(VRQVTriggerButtonTest, StepZeroSendsZeroEveryTickUntilReleased)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "0"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    for (int ticks = 0; ticks < 3; ++ticks)
        ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":0,"down":1})"}})) << "tick " << ticks + 1;
    EXPECT_TRUE(trigger->isRamping());
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":0,"down":0})"}}));
    expectStopped(pad, *trigger);
}

TEST(VRQVTriggerButtonTest, MaximumZeroSendsZeroOnceAndStops)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("0", "2.55"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":0,"down":1})"}}));
    expectStopped(pad, *trigger);
}

// A press or a release in the middle of a ramp turns it around where it is:
// 100 value units per tick with a step of 2.
TEST(VRQVTriggerButtonTest, ARampTurnsAroundFromTheValueItStandsAt)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "2"));
    const auto trigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_TRUE(trigger);
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":100,"down":1})"}}));
    pad.up(kOnTrigger);
    pad.down(kOnTrigger); // at once: the ramp down never ticked
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":200,"down":1})"}}));
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":100,"down":1})"}}));
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":200,"down":1})"}}));
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":255,"down":1})"}}));
    expectStopped(pad, *trigger);
}

// The button's destructor cancels its timer: once the container and its
// buttons are gone, time passes without a tick.
TEST(VRQVTriggerButtonTest, DestroyingTheGamepadWhileItRampsEndsTheTicks)
{
    ManualClock clock;
    GamepadHarness pad;
    pad.show(triggerLayout("255", "2"));
    std::weak_ptr<VRQVTriggerButton> weakTrigger = pad.button<VRQVTriggerButton>(0);
    ASSERT_FALSE(weakTrigger.expired());
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(pad), (Messages{{R"({"type":"rt","x":100,"down":1})"}}));
    EXPECT_TRUE(weakTrigger.lock()->isRamping());

    pad.pad->removeFromSuperview();
    pad.pad.reset();
    // A tick's message keeps the container until the main thread lets it go.
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return weakTrigger.expired(); }, 5s));
    ManualClock::advance(200ms, 50ms);
    pad.up(kOnTrigger);
    EXPECT_EQ(pad.take(), Messages{});
}

} // namespace
