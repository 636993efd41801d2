#pragma once

#include "vrq/platform/views/Geometry.h"

#include <cstdint>
#include <memory>

class VRQGamePlayer;
class VRQRemoteTouchScreen;
class VRQVirtualMouseCursor;

namespace vrq {
class Window;
}

// The kit's touch views as a host lays them over the game: a root window the
// size of the video view, holding the video, the remote touch screen and the
// virtual mouse cursor. One of the two overlays takes the fingers at a time.
// Main thread only.
class TouchStage {
public:
    explicit TouchStage(const std::shared_ptr<VRQGamePlayer>& player);

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

private:
    static double now();

    std::shared_ptr<vrq::Window> m_window;
    std::shared_ptr<VRQRemoteTouchScreen> m_touchScreen;
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor;
};
