#include "GamepadState.h"

#include "MessageEdits.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using nlohmann::json;
using vrqserver::GamepadState;

namespace {

using vrqtest::with;
using vrqtest::without;

using Pad = GamepadState::Pad;
using Stick = GamepadState::Stick;

json padKey(std::uint32_t mask, bool down)
{
    return {{"type", "gamepadkey"}, {"down", down}, {"key", mask}};
}

json axis(const char* type, double x, double y)
{
    return {{"type", type}, {"x", x}, {"y", y}};
}

json trigger(const char* type, double value, json down)
{
    return {{"type", type}, {"x", value}, {"down", std::move(down)}};
}

json keyboard(int key, bool down)
{
    return {{"type", "keyboard"}, {"down", down}, {"key", key}};
}

// A pad that any gamepad input connected.
Pad connectedPad()
{
    Pad pad;
    pad.seen = true;
    pad.connected = true;
    return pad;
}

} // namespace

TEST(GamepadStateTest, StartsDisconnectedWithNothingHeldOrRecorded)
{
    const GamepadState state;
    const auto snapshot = state.snapshot();
    EXPECT_EQ(snapshot.pad, Pad{});
    EXPECT_FALSE(snapshot.pad.seen);
    EXPECT_TRUE(snapshot.keysHeld.empty());
    EXPECT_EQ(snapshot.counts, GamepadState::Counts{});
    EXPECT_TRUE(snapshot.instructionLog.empty());
    EXPECT_EQ(GamepadState::describe(snapshot),
              json::parse(R"({"connected":false,"buttons":0,"left_stick":{"x":0,"y":0},"right_stick":{"x":0,"y":0},)"
                          R"("left_trigger":0,"right_trigger":0,"keys_held":[],"sequences":0,"instructions":0,)"
                          R"("repaired":0,"rejected":0,"instruction_log":[]})"));
}

TEST(GamepadStateTest, ButtonBitsAreSetWhileDownAndClearedOnUpEachOnItsOwn)
{
    GamepadState state;
    EXPECT_TRUE(state.apply(padKey(GamepadState::kA, true)));
    Pad expected = connectedPad();
    expected.buttons = GamepadState::kA;
    EXPECT_EQ(state.pad(), expected) << "a button connects the pad";

    EXPECT_TRUE(state.apply(padKey(GamepadState::kLeft, true)));
    EXPECT_TRUE(state.apply(padKey(GamepadState::kLeftShoulder | GamepadState::kRightShoulder, true)));
    EXPECT_EQ(state.pad().buttons, 4096u + 4 + 256 + 512);
    EXPECT_TRUE(state.apply(padKey(GamepadState::kA, false)));
    EXPECT_TRUE(state.apply(padKey(GamepadState::kRightShoulder, false)));
    EXPECT_TRUE(state.apply(padKey(GamepadState::kY, false))) << "releasing a button that is up";
    EXPECT_EQ(state.pad().buttons, 4u + 256);
    EXPECT_TRUE(state.apply(padKey(0x8000, true)));
    EXPECT_EQ(GamepadState::describe(state.snapshot())["buttons"], 32768 + 4 + 256);
}

TEST(GamepadStateTest, SticksAndTriggersTakeWholeValuesHeldToTheirRanges)
{
    GamepadState state;
    EXPECT_TRUE(state.apply(axis("axisleft", 16383, -32767)));
    EXPECT_TRUE(state.apply(axis("axisright", 40000, -1e9)));
    EXPECT_TRUE(state.apply(trigger("lt", 127.6, 1)));
    EXPECT_TRUE(state.apply(trigger("rt", 300, true)));
    Pad expected = connectedPad();
    expected.left = Stick{16383, -32767};
    expected.right = Stick{32767, -32768};
    expected.leftTrigger = 128;
    expected.rightTrigger = 255;
    EXPECT_EQ(state.pad(), expected);
    EXPECT_EQ(GamepadState::describe(state.snapshot())["left_stick"], json::parse(R"({"x":16383,"y":-32767})"));

    EXPECT_TRUE(state.apply(axis("axisleft", 0.4, -0.4)));
    EXPECT_TRUE(state.apply(trigger("lt", 0, 0)));
    EXPECT_TRUE(state.apply(trigger("rt", -5, false)));
    expected.left = Stick{};
    expected.leftTrigger = 0;
    expected.rightTrigger = 0;
    EXPECT_EQ(state.pad(), expected);
}

TEST(GamepadStateTest, AConnectShowsThePadAndADisconnectReleasesIt)
{
    GamepadState state;
    EXPECT_TRUE(state.apply({{"type", "gamepadconnect"}}));
    EXPECT_EQ(state.pad(), connectedPad());
    ASSERT_TRUE(state.apply(padKey(GamepadState::kStart, true)));
    ASSERT_TRUE(state.apply(axis("axisright", 5, 6)));
    ASSERT_TRUE(state.apply(trigger("lt", 9, 1)));
    ASSERT_TRUE(state.apply(keyboard(87, true)));

    EXPECT_TRUE(state.apply({{"type", "gamepaddisconnect"}}));
    Pad released;
    released.seen = true;
    EXPECT_EQ(state.pad(), released);
    EXPECT_EQ(state.snapshot().keysHeld, std::vector<int>{87}) << "the keyboard is not the pad";
    EXPECT_TRUE(state.apply(axis("axisleft", 1, 2)));
    EXPECT_TRUE(state.pad().connected) << "input connects it again";
}

TEST(GamepadStateTest, KeysHeldAreKeptInOrderAndKeysCleanReleasesThemAll)
{
    GamepadState state;
    for (const int key : {87, 65, 87, 16, 0, 255})
        EXPECT_TRUE(state.apply(keyboard(key, true))) << key;
    EXPECT_EQ(state.snapshot().keysHeld, (std::vector<int>{0, 16, 65, 87, 255}));
    EXPECT_TRUE(state.apply(keyboard(65, false)));
    EXPECT_TRUE(state.apply(keyboard(27, false))) << "releasing a key that is up";
    EXPECT_EQ(GamepadState::describe(state.snapshot())["keys_held"], json::parse("[0,16,87,255]"));
    EXPECT_EQ(state.pad(), Pad{}) << "keys do not touch the pad";

    EXPECT_TRUE(state.apply({{"type", "keys_clean"}}));
    EXPECT_TRUE(state.snapshot().keysHeld.empty());
}

TEST(GamepadStateTest, MalformedInputIsIgnoredWithoutThrowing)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const json cases[] = {
        json(),
        json("gamepadconnect"),
        json::array({padKey(1, true)}),
        json{{"type", 7}},
        json{{"type", "gamepadconnected"}},
        json{{"type", "key_seq"}, {"keys", json::array({R"({"type":"keys_clean"})"})}},
        without(padKey(1, true), "type"),
        without(padKey(1, true), "down"),
        without(padKey(1, true), "key"),
        with(padKey(1, true), "down", 1),
        with(padKey(1, true), "down", "true"),
        with(padKey(1, true), "key", 0),
        with(padKey(1, true), "key", -1),
        with(padKey(1, true), "key", 65536),
        with(padKey(1, true), "key", 1.5),
        with(padKey(1, true), "key", "4096"),
        with(padKey(1, true), "key", nan),
        without(axis("axisleft", 1, 2), "x"),
        without(axis("axisright", 1, 2), "y"),
        axis("axisleft", nan, 2),
        axis("axisright", 1, inf),
        with(axis("axisleft", 1, 2), "x", "1"),
        with(axis("axisleft", 1, 2), "y", true),
        without(trigger("lt", 9, 1), "x"),
        without(trigger("rt", 9, 1), "down"),
        trigger("lt", nan, 1),
        trigger("rt", -inf, 0),
        trigger("rt", 9, 2),
        trigger("lt", 9, 0.5),
        trigger("rt", 9, "1"),
        with(trigger("lt", 9, 1), "x", json::array()),
        without(keyboard(65, true), "down"),
        without(keyboard(65, true), "key"),
        with(keyboard(65, true), "down", 0),
        with(keyboard(65, true), "key", 256),
        with(keyboard(65, true), "key", -1),
        with(keyboard(65, true), "key", 65.5),
        with(keyboard(65, true), "key", "A"),
        json{{"type", "mouseleft"}, {"down", true}},
        json{{"type", "mousescroll"}, {"delta", 1}},
    };
    GamepadState state;
    for (const json& message : cases) {
        bool taken = true;
        EXPECT_NO_THROW(taken = state.apply(message)) << message.dump();
        EXPECT_FALSE(taken) << message.dump();
    }
    const auto snapshot = state.snapshot();
    EXPECT_EQ(snapshot.pad, Pad{});
    EXPECT_TRUE(snapshot.keysHeld.empty());
    EXPECT_EQ(snapshot.counts, GamepadState::Counts{}) << "apply records no sequence";
}

TEST(GamepadStateTest, AKeySequenceIsLoggedAsReceivedAndItsTextsReturnedInOrderWithTheMissingBraceAdded)
{
    const std::vector<json> keys = {
        R"({"type": "keyboard","down": true,"key": 27)",
        R"({"type": "gamepadkey","down": true,"key": 4096})",
        R"({"type":"axisleft","x":100,"y":-200})",
        42,
        "not json",
        R"({"type": "mousescroll","delta": -1}})",
        "[1, 2]",
        R"({"type":"rt","x":255,"down":1})",
    };
    GamepadState state;
    const auto inputs = state.recordSequence(keys);
    EXPECT_EQ(inputs, (std::vector<json>{keyboard(27, true), padKey(4096, true), axis("axisleft", 100, -200),
                                         trigger("rt", 255, 1)}));
    EXPECT_EQ(state.pad(), Pad{}) << "performing them is the caller's";

    const auto described = GamepadState::describe(state.snapshot());
    EXPECT_EQ(described["sequences"], 1);
    EXPECT_EQ(described["instructions"], 8);
    EXPECT_EQ(described["repaired"], 1);
    EXPECT_EQ(described["rejected"], 4);
    EXPECT_EQ(described["instruction_log"],
              (json::array({keys[0], keys[1], keys[2], "42", "not json", keys[5], "[1, 2]", keys[7]})));

    EXPECT_TRUE(state.recordSequence(json::array()).empty());
    for (const json& notKeys : {json(), json("{}"), json::object()})
        EXPECT_TRUE(state.recordSequence(notKeys).empty());
    EXPECT_EQ(state.snapshot().counts, (GamepadState::Counts{2, 8, 1, 4})) << "only arrays are sequences";
}

TEST(GamepadStateTest, TheLogKeepsTheNewestTextsCutToTheirLimitAndCountsThemAll)
{
    GamepadState state;
    const auto text = [](int index) { return R"({"type":"keyboard","down":true,"key":)" + std::to_string(index % 256) + "}"; };
    for (int sequence = 0; sequence < 30; ++sequence) {
        json keys = json::array();
        for (int index = sequence * 10; index < sequence * 10 + 10; ++index)
            keys.push_back(text(index));
        EXPECT_EQ(state.recordSequence(keys).size(), 10u);
    }
    auto snapshot = state.snapshot();
    EXPECT_EQ(snapshot.counts, (GamepadState::Counts{30, 300, 0, 0}));
    ASSERT_EQ(snapshot.instructionLog.size(), GamepadState::kLogSize);
    EXPECT_EQ(snapshot.instructionLog.front(), text(300 - 256));
    EXPECT_EQ(snapshot.instructionLog.back(), text(299));

    // 511 bytes, then a two-byte character that would straddle the limit.
    const std::string longText = std::string(511, 'a') + "\xc3\xa9" + std::string(100, 'b');
    EXPECT_TRUE(state.recordSequence(json::array({longText})).empty());
    snapshot = state.snapshot();
    EXPECT_EQ(snapshot.instructionLog.back(), std::string(511, 'a'));
    EXPECT_EQ(snapshot.instructionLog.size(), GamepadState::kLogSize);
    EXPECT_EQ(snapshot.counts.rejected, 1u);
    EXPECT_NO_THROW(GamepadState::describe(snapshot).dump()) << "the log stays valid UTF-8";
}
