#pragma once

#include "vrq/platform/views/View.h"

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

// The kit's touch views as a host lays them over the game: a root window as
// big as the host's area, holding the video letterboxed at the picture's
// aspect ratio, the remote touch screen and the virtual mouse cursor in a view
// that covers the picture (they read touches in their parent's coordinates,
// which must be the picture's) and, with a layout, the on-screen gamepad over
// the whole area on top. One of the two picture overlays takes the fingers at a time; the
// gamepad takes those on its buttons. Main thread only.
class TouchStage {
public:
    // An empty layout shows no gamepad. The area is the video view's frame.
    TouchStage(const std::shared_ptr<VRQGamePlayer>& player, std::string_view layout);

    // The session plays: a layout with game-controller controls connects the
    // remote side's virtual controller.
    void start();
    // Lays the views out in an area of that size, the picture at the video's
    // aspect ratio (the whole area while the video's size is unknown).
    void layOut(vrq::Size area);
    // The picture's place in the area, for a video of that size.
    static vrq::Rect pictureRect(vrq::Size video, vrq::Size area);

    vrq::Window& window() { return *m_window; }
    const std::shared_ptr<vrq::Window>& root() const { return m_window; }
    // The fingers go to the touch screen.
    void useTouchScreen();
    // The fingers go to the cursor, in a touch mode (0 absolute, 1 touchpad,
    // 2 move only) or in first-person mode.
    void useCursor(int touchMode, bool firstPerson);

    // A finger, in the window's points.
    void down(std::uint64_t finger, vrq::Point at);
    void move(std::uint64_t finger, vrq::Point to);
    void up(std::uint64_t finger, vrq::Point at);
    // Every finger lifted away (the window lost the focus).
    void cancelAll();

    const std::shared_ptr<VRQVKeyGamepad>& gamepad() const { return m_gamepad; }
    // Where the gamepad's button for an instruction is: its centre and half its width.
    struct Target {
        vrq::Point center;
        double radius = 0;
    };
    std::optional<Target> gamepadButton(std::string_view key) const;

private:
    static double now();

    std::weak_ptr<VRQGamePlayer> m_player;
    std::shared_ptr<vrq::Window> m_window;
    std::shared_ptr<vrq::View> m_picture;
    std::shared_ptr<VRQRemoteTouchScreen> m_touchScreen;
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor;
    std::shared_ptr<VRQVKeyGamepad> m_gamepad;
};
