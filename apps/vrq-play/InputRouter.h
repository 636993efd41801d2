#pragma once

#include "vrq/platform/views/Geometry.h"

#include <SDL_events.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

class TouchStage;
class VRQGameController;
class VRQGamePlayer;

namespace vrq {
class View;
}

// Turns a window's keyboard, mouse and finger input into the kit's input, as
// a host wires it:
// - keys become keyboard messages with Windows virtual-key codes (repeats
//   are the remote side's business and are not sent);
// - the mouse moves the remote pointer where it is over the video picture
//   (the letterbox and anything outside the picture are not the remote
//   screen), or, while captured, moves it by relative steps;
// - fingers, and the mouse with mouseAsTouch, go to the stage's root view,
//   where the touch screen, the cursor and the gamepad take them.
// Main thread only.
class InputRouter {
public:
    InputRouter(const std::shared_ptr<VRQGamePlayer>& player, bool mouseAsTouch);

    void setStage(std::shared_ptr<TouchStage> stage) { m_stage = std::move(stage); }
    // The window's size in points: finger positions come as fractions of it.
    void setWindowSize(vrq::Size size) { m_windowSize = size; }
    void setCaptured(bool captured) { m_captured = captured; }
    bool isCaptured() const { return m_captured; }

    // Handles the input events; false for any other event.
    bool handle(const SDL_Event& event);
    // Lets go of every key, button and finger held (the window lost focus).
    void releaseAll();

    // Where a point of the root view falls on the remote screen's 8192 x
    // 8192 grid, through the video view's placement and transform; nothing
    // outside the picture.
    static std::optional<vrq::Point> remoteGridPoint(const vrq::View& video, vrq::Point inRoot);

private:
    void key(const SDL_KeyboardEvent& event);
    void mouseMotion(const SDL_MouseMotionEvent& event);
    void mouseButton(const SDL_MouseButtonEvent& event);
    void wheel(const SDL_MouseWheelEvent& event);
    void finger(const SDL_TouchFingerEvent& event);
    void mouseAsFinger(const SDL_Event& event);
    bool moveRemotePointer(vrq::Point inWindow);
    std::shared_ptr<VRQGameController> controller() const;

    std::weak_ptr<VRQGamePlayer> m_player;
    std::shared_ptr<TouchStage> m_stage;
    const bool m_mouseAsTouch;
    vrq::Size m_windowSize{1280, 720};
    bool m_captured = false;
    std::set<std::int32_t> m_keysDown;
    std::set<std::uint8_t> m_buttonsDown;
    std::set<std::uint64_t> m_fingersDown;
};
