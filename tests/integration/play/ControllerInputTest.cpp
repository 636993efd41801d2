// Physical game controllers, played by SDL's virtual joysticks, through the
// demo host's controller input to the reference game: what its virtual
// controller does and the exact messages it receives.
#include "ControllerInput.h"

#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/core/VRQGameController.h"

#include <SDL.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

constexpr Uint32 kSubsystems = SDL_INIT_GAMECONTROLLER | SDL_INIT_EVENTS;

// A virtual joystick of the game-controller type. SDL gives it a mapping of
// its own: buttons and axes numbered as SDL's controller buttons and axes.
class VirtualPad {
public:
    VirtualPad()
    {
        SDL_VirtualJoystickDesc desc;
        SDL_zero(desc);
        desc.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
        desc.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
        desc.naxes = SDL_CONTROLLER_AXIS_MAX;
        desc.nbuttons = SDL_CONTROLLER_BUTTON_MAX;
        desc.name = "vrq test pad";
        const int index = SDL_JoystickAttachVirtualEx(&desc);
        m_joystick = index >= 0 ? SDL_JoystickOpen(index) : nullptr;
    }
    ~VirtualPad() { detach(); }
    VirtualPad(const VirtualPad&) = delete;
    VirtualPad& operator=(const VirtualPad&) = delete;

    bool attached() const { return m_joystick != nullptr; }
    int deviceIndex() const
    {
        const SDL_JoystickID instance = SDL_JoystickInstanceID(m_joystick);
        for (int index = 0; index < SDL_NumJoysticks(); ++index) {
            if (SDL_JoystickGetDeviceInstanceID(index) == instance)
                return index;
        }
        return -1;
    }
    void press(SDL_GameControllerButton button, bool down)
    {
        SDL_JoystickSetVirtualButton(m_joystick, button, down ? SDL_PRESSED : SDL_RELEASED);
    }
    // Triggers at rest are at -32768 here, fully pulled at 32767.
    void move(SDL_GameControllerAxis axis, Sint16 value) { SDL_JoystickSetVirtualAxis(m_joystick, axis, value); }
    // Detaching takes the device index, which shifts as pads come and go.
    void detach()
    {
        if (!m_joystick)
            return;
        const int index = deviceIndex();
        SDL_JoystickClose(m_joystick);
        m_joystick = nullptr;
        SDL_JoystickDetachVirtual(index);
    }

private:
    SDL_Joystick* m_joystick = nullptr;
};

class ControllerInputTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.ready());
        ASSERT_TRUE(m_session.play());
        // Only the virtual pads: no HID or udev scanning for real ones.
        SDL_SetHint(SDL_HINT_JOYSTICK_HIDAPI, "0");
        setenv("SDL_JOYSTICK_DISABLE_UDEV", "1", 0);
        ASSERT_EQ(SDL_InitSubSystem(kSubsystems), 0) << SDL_GetError();
        m_sdlStarted = true;
        if (SDL_NumJoysticks() != 0)
            GTEST_SKIP() << "a real joystick is attached";
        m_input = std::make_unique<ControllerInput>(m_session.player->gameController());
    }

    void TearDown() override
    {
        m_pads.clear();
        m_input.reset();
        if (m_sdlStarted)
            SDL_QuitSubSystem(kSubsystems);
    }

    // The pad, with its arrival handled: SDL reports a controller's changes
    // only once it is open.
    VirtualPad& attach()
    {
        m_pads.push_back(std::make_unique<VirtualPad>());
        EXPECT_TRUE(m_pads.back()->attached()) << SDL_GetError();
        pump();
        return *m_pads.back();
    }

    // Hands what SDL reports of the pads to the input, as the host's loop
    // does. Within one report SDL gives axes before buttons, so a test that
    // needs an order reports each step on its own.
    void pump()
    {
        SDL_Event event;
        while (SDL_PollEvent(&event))
            m_input->handle(event);
    }

    // The server's virtual controller once `ready` holds for it (or after 5 s).
    json controllerWhen(const std::function<bool(const json&)>& ready)
    {
        pump();
        return m_session.controllerWhen(ready);
    }

    vrqtest::PlayerSession m_session{vrqtest::loopbackAddress()};
    bool m_sdlStarted = false;
    std::unique_ptr<ControllerInput> m_input;
    std::vector<std::unique_ptr<VirtualPad>> m_pads;
};

json gamepadKey(int mask, bool down)
{
    return {{"type", "gamepadkey"}, {"key", mask}, {"down", down}};
}

json leftStick(int x, int y)
{
    return {{"type", "axisleft"}, {"x", x}, {"y", y}};
}

json rightTrigger(int x)
{
    return {{"type", "rt"}, {"x", x}, {"down", x > 0 ? 1 : 0}};
}

const json kConnect = {{"type", "gamepadconnect"}};
const json kDisconnect = {{"type", "gamepaddisconnect"}};

TEST_F(ControllerInputTest, PlugPressMovePullAndUnplugReachTheGame)
{
    VirtualPad& pad = attach();
    EXPECT_EQ(controllerWhen([](const json& s) { return s["connected"] == true; })["connected"], true);
    EXPECT_EQ(m_input->connectedCount(), 1u);

    pad.press(SDL_CONTROLLER_BUTTON_A, true);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["buttons"] == 4096; })["buttons"], 4096);
    pad.press(SDL_CONTROLLER_BUTTON_A, false);
    controllerWhen([](const json& s) { return s["buttons"] == 0; });
    // SDL's y grows downwards, the game's upwards; -32768 is held to 32767.
    pad.move(SDL_CONTROLLER_AXIS_LEFTX, 32767);
    pad.move(SDL_CONTROLLER_AXIS_LEFTY, -32768);
    const json pushed{{"x", 32767}, {"y", 32767}};
    const json moved = controllerWhen([&](const json& s) { return s["left_stick"] == pushed; });
    EXPECT_EQ(moved["left_stick"], pushed);
    EXPECT_EQ(moved["buttons"], 0);
    // SDL reports this change, but it reaches the game as the same value: nothing is sent.
    pad.move(SDL_CONTROLLER_AXIS_LEFTY, -32767);
    pad.move(SDL_CONTROLLER_AXIS_TRIGGERRIGHT, 32767);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["right_trigger"] == 255; })["right_trigger"], 255);

    pad.detach();
    const json gone = controllerWhen([](const json& s) { return s["connected"] == false; });
    EXPECT_EQ(gone["connected"], false);
    EXPECT_EQ(m_input->connectedCount(), 0u);

    // SDL centres a leaving pad's axes before it reports it gone.
    const std::vector<json> expected = {
        kConnect, gamepadKey(16, true), gamepadKey(16, false),
        gamepadKey(4096, true), gamepadKey(4096, false),
        leftStick(32767, 0), leftStick(32767, 32767), rightTrigger(255),
        leftStick(0, 32767), leftStick(0, 0), rightTrigger(0),
        kDisconnect,
    };
    EXPECT_EQ(m_session.received("km"), expected);
}

// Pressed together, SDL reports the buttons in its own order; the guide,
// misc, paddle and touchpad buttons send nothing.
TEST_F(ControllerInputTest, EveryButtonArrivesAsItsMask)
{
    const std::vector<std::pair<SDL_GameControllerButton, int>> masks = {
        {SDL_CONTROLLER_BUTTON_A, 4096},
        {SDL_CONTROLLER_BUTTON_B, 8192},
        {SDL_CONTROLLER_BUTTON_X, 16384},
        {SDL_CONTROLLER_BUTTON_Y, 32768},
        {SDL_CONTROLLER_BUTTON_BACK, 32},
        {SDL_CONTROLLER_BUTTON_START, 16},
        {SDL_CONTROLLER_BUTTON_LEFTSTICK, 128},
        {SDL_CONTROLLER_BUTTON_RIGHTSTICK, 64},
        {SDL_CONTROLLER_BUTTON_LEFTSHOULDER, 256},
        {SDL_CONTROLLER_BUTTON_RIGHTSHOULDER, 512},
        {SDL_CONTROLLER_BUTTON_DPAD_UP, 1},
        {SDL_CONTROLLER_BUTTON_DPAD_DOWN, 2},
        {SDL_CONTROLLER_BUTTON_DPAD_LEFT, 4},
        {SDL_CONTROLLER_BUTTON_DPAD_RIGHT, 8},
    };
    VirtualPad& pad = attach();
    for (int button = 0; button < SDL_CONTROLLER_BUTTON_MAX; ++button)
        pad.press(static_cast<SDL_GameControllerButton>(button), true);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["buttons"] == 0xF3FF; })["buttons"], 0xF3FF);
    for (int button = 0; button < SDL_CONTROLLER_BUTTON_MAX; ++button)
        pad.press(static_cast<SDL_GameControllerButton>(button), false);
    const json released = controllerWhen([](const json& s) { return s["buttons"] == 0; });
    EXPECT_EQ(released["buttons"], 0);

    std::vector<json> expected = {kConnect, gamepadKey(16, true), gamepadKey(16, false)};
    for (bool down : {true, false}) {
        for (const auto& [button, mask] : masks)
            expected.push_back(gamepadKey(mask, down));
    }
    EXPECT_EQ(m_session.received("km"), expected);
}

TEST_F(ControllerInputTest, SecondPadSharesTheConnectionUntilTheLastLeaves)
{
    VirtualPad& first = attach();
    controllerWhen([](const json& s) { return s["connected"] == true; });
    // An arrival reported again for a pad already open changes nothing.
    SDL_Event again{};
    again.type = SDL_CONTROLLERDEVICEADDED;
    again.cdevice.which = first.deviceIndex();
    EXPECT_TRUE(m_input->handle(again));
    EXPECT_EQ(m_input->connectedCount(), 1u);

    VirtualPad& second = attach();
    second.press(SDL_CONTROLLER_BUTTON_B, true);
    EXPECT_EQ(controllerWhen([](const json& s) { return s["buttons"] == 8192; })["buttons"], 8192);
    EXPECT_EQ(m_input->connectedCount(), 2u);

    // SDL releases the leaving pad's button; the game keeps its controller.
    second.detach();
    first.press(SDL_CONTROLLER_BUTTON_X, true);
    const json left = controllerWhen([](const json& s) { return s["buttons"] == 16384; });
    EXPECT_EQ(left["buttons"], 16384);
    EXPECT_EQ(left["connected"], true);
    EXPECT_EQ(m_input->connectedCount(), 1u);

    first.detach();
    EXPECT_EQ(controllerWhen([](const json& s) { return s["connected"] == false; })["connected"], false);

    const std::vector<json> expected = {
        kConnect, gamepadKey(16, true), gamepadKey(16, false),
        gamepadKey(8192, true), gamepadKey(8192, false),
        gamepadKey(16384, true), gamepadKey(16384, false),
        kDisconnect,
    };
    EXPECT_EQ(m_session.received("km"), expected);
}

} // namespace
