#pragma once

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <mutex>
#include <string>

namespace vrqserver {

// A line of text drawn over the game scene, so that a person watching sees
// what the game received (e.g. "KEYBOARD 65 DOWN"). Letters show in upper
// case; characters the built-in font lacks show as "?".
//
// Thread-safe: the text is set from the session's queue and drawn on the
// encoder's streaming thread.
class SceneOverlay {
public:
    static constexpr std::size_t kMaxLength = 48;

    // Longer texts are cut to kMaxLength characters.
    void setText(const std::string& text);
    std::string text() const;

    // Draws the text in white on a dark box in the frame's top-left corner,
    // clipped to the frame; an empty text draws nothing.
    void draw(vrq::rtc::VideoCanvas& canvas) const;

private:
    mutable std::mutex m_mutex;
    std::string m_text; // guarded by m_mutex
};

} // namespace vrqserver
