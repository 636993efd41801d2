#pragma once

#include <nlohmann/json.hpp>

#include <string>

// A host's handler for one type of server message. Called on the main thread.
class VRQGameMessageHandler {
public:
    virtual ~VRQGameMessageHandler() = default;
    virtual void handleMessageType(const std::string& type, const nlohmann::json& message) = 0;
};
