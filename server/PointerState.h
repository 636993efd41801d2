#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <mutex>
#include <optional>
#include <vector>

namespace vrqserver {

// The touch and mouse input a session received, in positions normalised to
// the picture (0..1, left/top to right/bottom), for drawing it over the scene.
//
// Fed the parsed input messages:
//   {"type":"event_touch","finger_id":N,"event_type":0|1|2,"x":X,"y":Y,"width":W,"height":H,...}
//       0 puts finger N down at (X/W, Y/H), 1 moves a finger that is down, 2 lifts it;
//   {"type":"mousemove_v2","x":X,"y":Y}       the pointer to (X/8192, Y/8192);
//   {"type":"mousedeltamove_v2","x":DX,"y":DY} the pointer moved by (DX/8192, DY/8192),
//       from the middle of the picture when no position was known;
//   {"type":"mouseleft"|"mouseright"|"mousemiddle","down":true|false}.
// Positions are held to the picture. Anything else, and any message with a
// member missing, of the wrong type or not finite, is ignored.
//
// Thread-safe: fed on the session's queue, read on the encoder's streaming thread.
class PointerState {
public:
    static constexpr int kMaxFingers = 32; // finger ids 0..kMaxFingers-1
    static constexpr double kMouseGrid = 8192.0;

    struct Point {
        double x = 0;
        double y = 0;
        bool operator==(const Point&) const = default;
    };
    struct Finger {
        int id = 0;
        Point position;
        bool operator==(const Finger&) const = default;
    };
    struct Buttons {
        bool left = false;
        bool right = false;
        bool middle = false;
        bool operator==(const Buttons&) const = default;
    };
    struct Snapshot {
        std::vector<Finger> fingers; // the fingers down, by id
        std::optional<Point> pointer; // none until the mouse moved
        Buttons buttons;
        bool mouseSeen = false; // whether any mouse move or button came
    };

    // Whether the message was taken.
    bool apply(const nlohmann::json& message);
    Snapshot snapshot() const;

    // {"fingers":[{"id":N,"x":X,"y":Y}],"pointer":{"x":X,"y":Y}|null,"buttons":{"left":B,"right":B,"middle":B}}
    static nlohmann::json describe(const Snapshot& snapshot);

private:
    bool applyTouch(const nlohmann::json& message);
    bool applyMove(const nlohmann::json& message, bool relative);
    bool applyButton(const nlohmann::json& message, bool Buttons::*button);

    mutable std::mutex m_mutex; // guards the members below
    std::array<std::optional<Point>, kMaxFingers> m_fingers{};
    std::optional<Point> m_pointer;
    Buttons m_buttons;
    bool m_mouseSeen = false;
};

} // namespace vrqserver
