#include "ControllerInput.h"

#include "vrq/core/VRQGameController.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>

namespace {

constexpr int kStickMax = 32767;
constexpr double kStickScale = 32767.0;
constexpr int kTriggerMax = 255;
constexpr int kSdlTriggerMax = 32767;

// The kit's gamepad masks. A left-stick click is 128 and a right-stick click
// 64: the values the on-screen gamepad sends for "gamepad_l3" and
// "gamepad_r3", so a click reaches the game the same way from either.
std::optional<std::int32_t> buttonMask(std::uint8_t button)
{
    switch (button) {
    case SDL_CONTROLLER_BUTTON_DPAD_UP: return 1;
    case SDL_CONTROLLER_BUTTON_DPAD_DOWN: return 2;
    case SDL_CONTROLLER_BUTTON_DPAD_LEFT: return 4;
    case SDL_CONTROLLER_BUTTON_DPAD_RIGHT: return 8;
    case SDL_CONTROLLER_BUTTON_START: return 16;
    case SDL_CONTROLLER_BUTTON_BACK: return 32;
    case SDL_CONTROLLER_BUTTON_RIGHTSTICK: return 64;
    case SDL_CONTROLLER_BUTTON_LEFTSTICK: return 128;
    case SDL_CONTROLLER_BUTTON_LEFTSHOULDER: return 256;
    case SDL_CONTROLLER_BUTTON_RIGHTSHOULDER: return 512;
    case SDL_CONTROLLER_BUTTON_A: return 4096;
    case SDL_CONTROLLER_BUTTON_B: return 8192;
    case SDL_CONTROLLER_BUTTON_X: return 16384;
    case SDL_CONTROLLER_BUTTON_Y: return 32768;
    default: return std::nullopt;
    }
}

bool isTrigger(SDL_GameControllerAxis axis)
{
    return axis == SDL_CONTROLLER_AXIS_TRIGGERLEFT || axis == SDL_CONTROLLER_AXIS_TRIGGERRIGHT;
}

bool isLeftStick(SDL_GameControllerAxis axis)
{
    return axis == SDL_CONTROLLER_AXIS_LEFTX || axis == SDL_CONTROLLER_AXIS_LEFTY;
}

// SDL's y grows downwards, the game's upwards.
int stickOnWire(SDL_GameControllerAxis axis, int value)
{
    const bool vertical = axis == SDL_CONTROLLER_AXIS_LEFTY || axis == SDL_CONTROLLER_AXIS_RIGHTY;
    return std::clamp(vertical ? -value : value, -kStickMax, kStickMax);
}

} // namespace

ControllerInput::ControllerInput(std::shared_ptr<VRQGameController> controller)
    : m_controller(std::move(controller))
{
}

ControllerInput::~ControllerInput()
{
    for (const auto& [instance, pad] : m_pads)
        SDL_GameControllerClose(pad.handle);
}

bool ControllerInput::handle(const SDL_Event& event)
{
    switch (event.type) {
    case SDL_CONTROLLERDEVICEADDED:
        add(event.cdevice.which);
        return true;
    case SDL_CONTROLLERDEVICEREMOVED:
        remove(event.cdevice.which);
        return true;
    case SDL_CONTROLLERBUTTONDOWN:
    case SDL_CONTROLLERBUTTONUP:
        press(event.cbutton);
        return true;
    case SDL_CONTROLLERAXISMOTION:
        move(event.caxis);
        return true;
    default:
        return false;
    }
}

// value / 32767 comes back as exactly value through the kit's multiply and
// truncate, for every value in range.
double ControllerInput::stickUnit(int value)
{
    return std::clamp(value, -kStickMax, kStickMax) / kStickScale;
}

// The instance id is taken from the opened controller rather than the index:
// indices shift as devices come and go, and opening a device twice only adds
// a reference to the same controller.
void ControllerInput::add(int deviceIndex)
{
    SDL_GameController* handle = SDL_GameControllerOpen(deviceIndex);
    if (!handle)
        return;
    const SDL_JoystickID instance = SDL_JoystickInstanceID(SDL_GameControllerGetJoystick(handle));
    if (!m_pads.try_emplace(instance, Pad{handle}).second) {
        SDL_GameControllerClose(handle);
        return;
    }
    if (m_pads.size() == 1)
        m_controller->enableVirtualGamepad(true);
}

// SDL releases a leaving controller's buttons and centres its axes before it
// reports it removed, and those events have been sent on already; what is
// left is to forget it.
void ControllerInput::remove(SDL_JoystickID instance)
{
    const auto found = m_pads.find(instance);
    if (found == m_pads.end())
        return;
    SDL_GameControllerClose(found->second.handle);
    m_pads.erase(found);
    if (m_pads.empty())
        m_controller->enableVirtualGamepad(false);
}

void ControllerInput::press(const SDL_ControllerButtonEvent& event)
{
    if (!m_pads.contains(event.which))
        return;
    if (const auto mask = buttonMask(event.button))
        m_controller->clickGamepadKey(*mask, event.state == SDL_PRESSED);
}

void ControllerInput::move(const SDL_ControllerAxisEvent& event)
{
    const auto found = m_pads.find(event.which);
    if (found == m_pads.end() || event.axis >= SDL_CONTROLLER_AXIS_MAX)
        return;
    const auto axis = static_cast<SDL_GameControllerAxis>(event.axis);
    if (isTrigger(axis))
        pullTrigger(found->second, axis, event.value);
    else
        moveStick(found->second, axis, event.value);
}

void ControllerInput::moveStick(Pad& pad, SDL_GameControllerAxis axis, int value)
{
    const int wire = stickOnWire(axis, value);
    if (pad.sent[axis] == wire)
        return;
    pad.sent[axis] = wire;
    const bool left = isLeftStick(axis);
    const int x = pad.sent[left ? SDL_CONTROLLER_AXIS_LEFTX : SDL_CONTROLLER_AXIS_RIGHTX];
    const int y = pad.sent[left ? SDL_CONTROLLER_AXIS_LEFTY : SDL_CONTROLLER_AXIS_RIGHTY];
    m_controller->turnJoyStick(stickUnit(x), stickUnit(y), left);
}

// The message the on-screen trigger sends, with its value scaled to 0..255.
void ControllerInput::pullTrigger(Pad& pad, SDL_GameControllerAxis axis, int value)
{
    const int wire = std::clamp(value, 0, kSdlTriggerMax) * kTriggerMax / kSdlTriggerMax;
    if (pad.sent[axis] == wire)
        return;
    pad.sent[axis] = wire;
    const char* type = axis == SDL_CONTROLLER_AXIS_TRIGGERLEFT ? "lt" : "rt";
    m_controller->sendKeycodeMessage({{"type", type}, {"x", wire}, {"down", wire > 0 ? 1 : 0}});
}
