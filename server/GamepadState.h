#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace vrqserver {

// The virtual game controller and the keyboard keys a session's client holds,
// and a record of the key sequences it sent, for drawing over the scene and
// reading over the control API.
//
// Fed the parsed input messages:
//   {"type":"gamepadconnect"} / {"type":"gamepaddisconnect"}: the pad comes and
//       goes; a disconnect releases its buttons, sticks and triggers;
//   {"type":"gamepadkey","down":B,"key":MASK}: the mask's Button bits (1..0xFFFF)
//       are held while down, released when up;
//   {"type":"axisleft"|"axisright","x":X,"y":Y}: a stick, held to -32768..32767, y up;
//   {"type":"lt"|"rt","x":V,"down":D}: a trigger's value, held to 0..255; D is
//       true/false or 0/1;
//   {"type":"keyboard","down":B,"key":K}: the key code K (0..255) held or released;
//   {"type":"keys_clean"}: every keyboard key released.
// Any gamepad input connects the pad. Numbers are rounded to whole ones.
// Anything else, and any message with a member missing, of the wrong type or
// not finite, is ignored.
//
// Key sequences ({"type":"key_seq","keys":[TEXT, ...]}) are unwrapped by the
// caller through recordSequence(), which keeps the texts as received.
//
// Thread-safe: fed on the session's queue, read on the encoder's streaming
// thread and by the control API.
class GamepadState {
public:
    enum Button : std::uint32_t {
        kUp = 1,
        kDown = 2,
        kLeft = 4,
        kRight = 8,
        kStart = 16,
        kBack = 32,
        kRightThumb = 64,
        kLeftThumb = 128,
        kLeftShoulder = 256,
        kRightShoulder = 512,
        kGuide = 1024,
        kA = 4096,
        kB = 8192,
        kX = 16384,
        kY = 32768,
    };
    static constexpr int kMaxKey = 255;
    // The texts kept of the key sequences, newest last; older ones are only counted.
    static constexpr std::size_t kLogSize = 256;
    // Longer texts are kept cut to this many bytes (at a character boundary).
    static constexpr std::size_t kMaxLoggedText = 512;

    struct Stick {
        int x = 0;
        int y = 0;
        bool operator==(const Stick&) const = default;
    };
    // What is drawn of the controller.
    struct Pad {
        bool seen = false; // whether any gamepad input or connect came
        bool connected = false;
        std::uint32_t buttons = 0; // the Button bits held
        Stick left;
        Stick right;
        int leftTrigger = 0;
        int rightTrigger = 0;
        bool operator==(const Pad&) const = default;
    };
    struct Counts {
        std::size_t sequences = 0;    // key sequences received
        std::size_t instructions = 0; // their elements, in all
        std::size_t repaired = 0;     // texts that parsed only once a closing brace was added
        std::size_t rejected = 0;     // elements that were not texts of a JSON object
        bool operator==(const Counts&) const = default;
    };
    struct Snapshot {
        Pad pad;
        std::vector<int> keysHeld; // ascending
        Counts counts;
        std::vector<std::string> instructionLog; // the last kLogSize elements, oldest first
    };

    // Whether the message was taken.
    bool apply(const nlohmann::json& input);
    // Records the "keys" of a key sequence and returns the inputs its texts
    // hold, in order, for the caller to perform. A text that is not JSON but
    // is once a "}" is added is taken (the client's Esc press lacks its brace).
    // Elements that are not strings are logged as their JSON. Nothing is
    // recorded when keys is not an array.
    std::vector<nlohmann::json> recordSequence(const nlohmann::json& keys);
    // One text of a key sequence as JSON, with that repair; null when it is none.
    static nlohmann::json parseInstruction(const std::string& text, bool& repaired);

    Snapshot snapshot() const;
    Pad pad() const;

    // {"connected":B,"buttons":MASK,"left_stick":{"x":X,"y":Y},"right_stick":{"x":X,"y":Y},
    //  "left_trigger":V,"right_trigger":V,"keys_held":[K,...],
    //  "sequences":N,"instructions":N,"repaired":N,"rejected":N,"instruction_log":[TEXT,...]}
    static nlohmann::json describe(const Snapshot& snapshot);

private:
    bool applyConnection(bool connected);
    bool applyButtons(const nlohmann::json& input);
    bool applyStick(const nlohmann::json& input, Stick Pad::*stick);
    bool applyTrigger(const nlohmann::json& input, int Pad::*trigger);
    bool applyKeyboard(const nlohmann::json& input);
    bool clearKeys();
    void log(std::string text);

    mutable std::mutex m_mutex; // guards the members below
    Pad m_pad;
    std::set<int> m_keysHeld;
    Counts m_counts;
    std::deque<std::string> m_log;
};

} // namespace vrqserver
