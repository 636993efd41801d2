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

// The one message {"type":"rt","x":x,"down":down}.
Messages rt(int x, int down)
{
    return {{"{\"type\":\"rt\",\"x\":" + std::to_string(x) + ",\"down\":" + std::to_string(down) + "}"}};
}

// One right trigger on a manual clock.
class VRQVTriggerButtonTest : public ::testing::Test {
protected:
    // Shows the trigger with these settings and presses it.
    void press(const char* maxValue, const char* damperStep)
    {
        pad.show(triggerLayout(maxValue, damperStep));
        trigger = pad.button<VRQVTriggerButton>(0);
        ASSERT_TRUE(trigger);
        pad.down(kOnTrigger);
    }

    // One tick of the ramp: moves the clock 50 ms, waits for the one message
    // the tick sends on the trigger's queue, and returns what was sent.
    Messages tick()
    {
        const std::size_t before = pad.count();
        ManualClock::advance(50ms, 50ms);
        pad.waitForCount(before + 1);
        return pad.take();
    }

    // The ramp has ended: its timer is gone, and more time sends nothing.
    void expectStopped()
    {
        EXPECT_TRUE(vrq::runMainLoopUntil([&] { return !trigger->isRamping(); }, 5s)) << "the ramp goes on";
        ManualClock::advance(200ms, 50ms);
        EXPECT_EQ(pad.take(), Messages{});
    }

    ManualClock clock;
    GamepadHarness pad;
    std::shared_ptr<VRQVTriggerButton> trigger;
};

TEST_F(VRQVTriggerButtonTest, HoldRampsUpByTheStepPerMillisecondToTheMaximum)
{
    press("255", "2.55");
    EXPECT_EQ(pad.take(), Messages{}) << "the first value comes with the first tick";
    ASSERT_EQ(tick(), rt(127, 1)) << "2.55 x 50 ms = 127.5";
    // The value is kept whole between ticks: 127 + 127.5 is 254, and the
    // maximum comes one tick later.
    ASSERT_EQ(tick(), rt(254, 1));
    ASSERT_EQ(tick(), rt(255, 1));
    expectStopped();
}

TEST_F(VRQVTriggerButtonTest, ReleaseRampsDownFromTheMaximumByTheStepPerMillisecond)
{
    press("255", "2.55");
    const Messages full = rt(255, 1);
    Messages last;
    for (int ticks = 0; ticks < 5 && last != full; ++ticks)
        last = tick();
    ASSERT_EQ(last, full) << "held until the maximum";
    expectStopped();

    pad.up(kOnTrigger);
    ASSERT_EQ(tick(), rt(127, 1));
    ASSERT_EQ(tick(), rt(0, 0));
    expectStopped();
}

TEST_F(VRQVTriggerButtonTest, AStepOfTheWholeRangePerTickGoesFullAndBackInOneTickEach)
{
    press("255", "5.1");
    ASSERT_EQ(tick(), rt(255, 1));
    expectStopped();
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(), rt(0, 0));
    expectStopped();
}

// A step of 0 never reaches the maximum: the value 0 goes out at every tick
// while held, and the release ends at its first tick.
TEST_F(VRQVTriggerButtonTest, StepZeroSendsZeroEveryTickUntilReleased)
{
    press("255", "0");
    for (int ticks = 0; ticks < 3; ++ticks)
        ASSERT_EQ(tick(), rt(0, 1)) << "tick " << ticks + 1;
    EXPECT_TRUE(trigger->isRamping());
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(), rt(0, 0));
    expectStopped();
}

TEST_F(VRQVTriggerButtonTest, MaximumZeroSendsZeroOnceAndStops)
{
    press("0", "2.55");
    ASSERT_EQ(tick(), rt(0, 1));
    expectStopped();
}

// A press or a release in the middle of a ramp turns it around where it is:
// 100 value units per tick with a step of 2.
TEST_F(VRQVTriggerButtonTest, ARampTurnsAroundFromTheValueItStandsAt)
{
    press("255", "2");
    ASSERT_EQ(tick(), rt(100, 1));
    pad.up(kOnTrigger);
    pad.down(kOnTrigger); // at once: the ramp down never ticked
    ASSERT_EQ(tick(), rt(200, 1));
    pad.up(kOnTrigger);
    ASSERT_EQ(tick(), rt(100, 1));
    pad.down(kOnTrigger);
    ASSERT_EQ(tick(), rt(200, 1));
    ASSERT_EQ(tick(), rt(255, 1));
    expectStopped();
}

// The button's destructor cancels its timer: once the container and its
// buttons are gone, time passes without a tick.
TEST_F(VRQVTriggerButtonTest, DestroyingTheGamepadWhileItRampsEndsTheTicks)
{
    press("255", "2");
    ASSERT_EQ(tick(), rt(100, 1));
    EXPECT_TRUE(trigger->isRamping());
    const std::weak_ptr<VRQVTriggerButton> weakTrigger = trigger;
    trigger.reset();

    pad.pad->removeFromSuperview();
    pad.pad.reset();
    // A tick's message keeps the container until the main thread lets it go.
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return weakTrigger.expired(); }, 5s));
    ManualClock::advance(200ms, 50ms);
    pad.up(kOnTrigger);
    EXPECT_EQ(pad.take(), Messages{});
}

} // namespace
