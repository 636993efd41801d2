#pragma once

#include <memory>

class VRQGamePlayer;

// Where the game is shown and where a person's input comes from. vrq-play
// drives it from the main thread only: attach() once the player exists and
// before the game starts, pump() on every turn of the main loop while the
// session runs, detach() before the player stops.
class PlayWindow {
public:
    virtual ~PlayWindow() = default;

    // Lays out the player's video view; a window also starts rendering it.
    virtual void attach(const std::shared_ptr<VRQGamePlayer>& player) = 0;
    // Draws the latest frame and turns pending window events into the
    // player's input. Must return quickly: it runs between main-loop events.
    virtual void pump() = 0;
    // True once the person asked to leave (closed the window).
    virtual bool closeRequested() const = 0;
    virtual void detach() = 0;
};
