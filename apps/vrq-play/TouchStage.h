#pragma once

#include "vrq/platform/views/Geometry.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class VRQGamePlayer;
class VRQRemoteTouchScreen;
class VRQVKeyGamepad;
class VRQVirtualMouseCursor;

namespace vrq {
class Window;
}

// The kit's touch views as a host lays them over the game: a root window the
// size of the video view, holding the video, the remote touch screen, the
// virtual mouse cursor and, with a layout, the on-screen gamepad on top. One
// of the two first overlays takes the fingers at a time; the gamepad takes
// those on its buttons. Main thread only.
class TouchStage {
public:
    // An empty layout shows no gamepad. A layout with game-controller
    // controls connects the remote side's virtual controller.
    TouchStage(const std::shared_ptr<VRQGamePlayer>& player, std::string_view layout);

    vrq::Window& window() { return *m_window; }
    // The fingers go to the touch screen.
    void useTouchScreen();
    // The fingers go to the cursor, in a touch mode (0 absolute, 1 touchpad,
    // 2 move only) or in first-person mode.
    void useCursor(int touchMode, bool firstPerson);

    // A finger, in the window's points.
    void down(std::uint64_t finger, vrq::Point at);
    void move(std::uint64_t finger, vrq::Point to);
    void up(std::uint64_t finger, vrq::Point at);

    const std::shared_ptr<VRQVKeyGamepad>& gamepad() const { return m_gamepad; }
    // Where the gamepad's button for an instruction is: its centre and half its width.
    struct Target {
        vrq::Point center;
        double radius = 0;
    };
    std::optional<Target> gamepadButton(std::string_view key) const;

private:
    static double now();

    std::shared_ptr<vrq::Window> m_window;
    std::shared_ptr<VRQRemoteTouchScreen> m_touchScreen;
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor;
    std::shared_ptr<VRQVKeyGamepad> m_gamepad;
};
