#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Recorded touch-screen gestures played into a window as the system's own
// finger events, for demos and tests on machines without a touch screen.
// The file holds one JSON object a line:
//   {"ms": 0, "finger": "down", "id": 1, "x": 0.5, "y": 0.5}
// "ms" counts from the start of the replay, "finger" is "down", "move" or
// "up", and x and y are fractions of the window's width and height.
class FingerReplay {
public:
    enum class Phase { Down, Move, Up };
    struct Step {
        std::chrono::milliseconds at{0};
        Phase phase = Phase::Down;
        std::int64_t finger = 0;
        double x = 0;
        double y = 0;
    };

    // Nothing, with the reason (and the line), when the file cannot be read or a line is malformed.
    static std::optional<FingerReplay> read(const std::string& path, std::string* error);

    // The steps' clock starts now.
    void start();
    // Pushes the steps that are due into the window's event queue (SDL's);
    // main thread only. True once every step was pushed.
    bool pushDue(std::uint32_t windowId);

    const std::vector<Step>& steps() const { return m_steps; }

private:
    std::vector<Step> m_steps;
    std::size_t m_next = 0;
    std::optional<std::chrono::steady_clock::time_point> m_start;
};
