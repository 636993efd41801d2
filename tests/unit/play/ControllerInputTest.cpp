#include "ControllerInput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

// What the kit puts on the wire for a stick fraction (see VRQGameController::turnJoyStick).
int onWire(double unit)
{
    return static_cast<int>(std::trunc(unit * 32767.0));
}

// Every value SDL reports, as x and negated as y, arrives as itself held to
// ±32767, and the fraction never leaves [-1, 1].
TEST(ControllerInputTest, StickUnitsArriveAsExactlyTheSdlValueForEveryValue)
{
    int wrong = 0;
    int firstWrong = 0;
    for (int value = -32768; value <= 32767; ++value) {
        for (int sent : {value, -value}) {
            const double unit = ControllerInput::stickUnit(sent);
            if (onWire(unit) == std::clamp(sent, -32767, 32767) && std::abs(unit) <= 1.0)
                continue;
            if (wrong++ == 0)
                firstWrong = sent;
        }
    }
    EXPECT_EQ(wrong, 0) << "first wrong value " << firstWrong;
    EXPECT_EQ(ControllerInput::stickUnit(32768), 1.0);
    EXPECT_EQ(ControllerInput::stickUnit(-32768), -1.0);
}

} // namespace
