#pragma once

#include <SDL_events.h>
#include <SDL_gamecontroller.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>

class VRQGameController;

// Physical game controllers through SDL's GameController API, sent as the
// kit's gamepad messages. Every controller drives the one virtual controller
// of the remote side: the first to arrive connects it, the last to leave
// disconnects it. The caller has initialised SDL's game-controller subsystem
// and feeds SDL's events in. Main thread only.
class ControllerInput {
public:
    explicit ControllerInput(std::shared_ptr<VRQGameController> controller);
    // Closes the controllers it opened.
    ~ControllerInput();
    ControllerInput(const ControllerInput&) = delete;
    ControllerInput& operator=(const ControllerInput&) = delete;

    // Handles SDL's controller device added and removed, button and axis
    // events; true when the event was one of those.
    bool handle(const SDL_Event& event);
    std::size_t connectedCount() const { return m_pads.size(); }

    // The fraction in [-1, 1] that the kit turns back into exactly value
    // (-32767..32767) when it scales a stick to the wire.
    static double stickUnit(int value);

private:
    // What the remote side was last sent for each axis of a controller: the
    // stick values (-32767..32767, y up) and the triggers (0..255).
    struct Pad {
        SDL_GameController* handle = nullptr;
        std::array<int, SDL_CONTROLLER_AXIS_MAX> sent{};
    };

    void add(int deviceIndex);
    void remove(SDL_JoystickID instance);
    void press(const SDL_ControllerButtonEvent& event);
    void move(const SDL_ControllerAxisEvent& event);
    void moveStick(Pad& pad, SDL_GameControllerAxis axis, int value);
    void pullTrigger(Pad& pad, SDL_GameControllerAxis axis, int value);

    std::shared_ptr<VRQGameController> m_controller;
    std::map<SDL_JoystickID, Pad> m_pads; // by joystick instance id
};
