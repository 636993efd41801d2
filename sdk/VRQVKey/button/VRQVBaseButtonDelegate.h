#pragma once

#include <nlohmann/json.hpp>

// Where a button's messages go: the gamepad container. Called on the main
// thread, and on a trigger's own queue while it ramps.
class VRQVBaseButtonDelegate {
public:
    virtual ~VRQVBaseButtonDelegate() = default;
    // message: {"type": "key_seq", "keys": [instruction text, ...]}
    virtual void sendVKeyMessage(const nlohmann::json& message) = 0;
};
