// Touches on the on-screen gamepad laid over the video, as the reference game
// receives them and as its virtual controller ends up.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/VRQVKey/button/VRQVKeyGamepad.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/platform/views/Window.h"

#include <functional>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// On a 1280-wide window one layout pixel is 2/3 of a point: the A button
// covers (1000, 400) to (1100, 500), the pad (100, 400) to (300, 600), the
// stick (400, 400) to (600, 600) and the trigger (1000, 100) to (1100, 200).
constexpr const char* kLayout = R"([
  {"key": "gamepad_a", "left": "1500", "top": "600", "width": "150", "height": "150",
   "normal_view": {"icon_name": "a"}, "pressed_view": {"icon_name": "a_on"}},
  {"key": "dpad_xbox", "left": "150", "top": "600", "width": "300", "height": "300", "inner_radius": "30",
   "outer_icon_name": "dpad_base", "inner_normal_icon_name": "dpad_knob", "inner_pressed_icon_name": "dpad_knob_on",
   "button_list": [{"key": "gamepad_↑"}, {"key": "gamepad_→"}, {"key": "gamepad_↓"}, {"key": "gamepad_←"}]},
  {"key": "stick_left", "left": "600", "top": "600", "width": "300", "height": "300", "inner_radius": "60",
   "outer_icon_name": "stick_base", "inner_normal_icon_name": "stick_knob", "inner_pressed_icon_name": "stick_knob_on"},
  {"key": "trigger_rt_max", "left": "1500", "top": "150", "width": "150", "height": "150",
   "max_value": "255", "damper_step": "5.1", "normal_view": {"icon_name": "rt"}, "pressed_view": {"icon_name": "rt_on"}}
])";

class GamepadInputTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.ready());
        ASSERT_TRUE(m_session.play());
        m_gamepad = VRQVKeyGamepad::initWithFrame(m_window->bounds(), m_session.player->gameController());
        m_gamepad->showKeyGamepad(kLayout);
        m_window->addSubview(m_session.player->videoView());
        m_window->addSubview(m_gamepad);
    }

    void tap(std::uint64_t finger, vrq::Point at)
    {
        m_window->touchDown(finger, at, m_time += 0.1);
        m_window->touchUp(finger, at, m_time += 0.1);
    }

    json controllerWhen(const std::function<bool(const json&)>& ready) { return m_session.controllerWhen(ready); }

    vrqtest::PlayerSession m_session{vrqtest::loopbackAddress()};
    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {1280, 720}});
    std::shared_ptr<VRQVKeyGamepad> m_gamepad;
    double m_time = 10;
};

std::string gamepadKey(bool down, int mask)
{
    return std::string("{\"type\": \"gamepadkey\",\"down\": ") + (down ? "true" : "false") + ",\"key\": " +
           std::to_string(mask) + "}";
}

std::string axis(int x, int y)
{
    return "{\"type\":\"axisleft\",\"x\":" + std::to_string(x) + ",\"y\":" + std::to_string(y) + "}";
}

TEST_F(GamepadInputTest, ButtonPadStickAndTriggerReachTheGameAsKeySequences)
{
    ASSERT_EQ(m_gamepad->buttonList().size(), 4u);
    EXPECT_TRUE(m_gamepad->needConnected());
    // Between the buttons, touches reach the video beneath.
    EXPECT_EQ(m_window->hitTest({640, 100}), m_session.player->videoView().get());

    tap(1, {1050, 450});
    // The pad's first gesture after a layout only records its state; its
    // release sends the release of "up", the second gesture slides up,
    // up-right, right.
    tap(2, {200, 410});
    m_window->touchDown(3, {200, 410}, m_time += 0.1);
    m_window->touchMove(3, {270, 430}, m_time += 0.1);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["buttons"] == (1 | 8); })["buttons"], 1 | 8);
    m_window->touchMove(3, {300, 500}, m_time += 0.1);
    m_window->touchUp(3, {300, 500}, m_time += 0.1);

    m_window->touchDown(4, {500, 500}, m_time += 0.1);
    m_window->touchMove(4, {650, 500}, m_time += 0.1);
    const json pushedRight{{"x", 32767}, {"y", 0}};
    EXPECT_EQ(controllerWhen([&](const json& s) { return s["left_stick"] == pushedRight; })["left_stick"], pushedRight);
    m_window->touchMove(4, {500, 350}, m_time += 0.1);
    m_window->touchUp(4, {500, 350}, m_time += 0.1);

    // The trigger reaches its full value at its first tick, and is let go then.
    m_window->touchDown(5, {1050, 150}, m_time += 0.1);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["right_trigger"] == 255; })["right_trigger"], 255);
    m_window->touchUp(5, {1050, 150}, m_time += 0.1);

    const std::vector<std::vector<std::string>> expected = {
        {gamepadKey(true, 4096)},
        {gamepadKey(false, 4096)},
        {gamepadKey(false, 1)},
        {gamepadKey(true, 1)},
        {gamepadKey(true, 8)},
        {gamepadKey(false, 1)},
        {gamepadKey(false, 8)},
        {axis(32767, 0)},
        {axis(0, 32767)},
        {axis(0, 21845), axis(0, 10923), axis(0, 0)},
        {"{\"type\":\"rt\",\"x\":255,\"down\":1}"},
        {"{\"type\":\"rt\",\"x\":0,\"down\":0}"},
    };
    // The last instruction lets the trigger go.
    const json state = controllerWhen([](const json& s) { return s["instructions"] == 14 && s["right_trigger"] == 0; });
    const auto km = m_session.received("km");
    ASSERT_EQ(km.size(), expected.size());
    for (std::size_t i = 0; i < km.size(); ++i)
        EXPECT_EQ(km[i], (json{{"type", "key_seq"}, {"keys", expected[i]}})) << "message " << i;

    EXPECT_EQ(state["connected"], true);
    EXPECT_EQ(state["buttons"], 0);
    EXPECT_EQ(state["left_stick"], (json{{"x", 0}, {"y", 0}}));
    EXPECT_EQ(state["right_trigger"], 0);
    EXPECT_EQ(state["rejected"], 0);
    EXPECT_EQ(state["instruction_log"].size(), 14u);
}

} // namespace
