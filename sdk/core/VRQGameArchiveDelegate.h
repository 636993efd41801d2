#pragma once

#include <nlohmann/json.hpp>

// Save-game progress reported by the server. Calls arrive on the main thread;
// the player holds its archive delegate weakly.
class VRQGameArchiveDelegate {
public:
    virtual ~VRQGameArchiveDelegate() = default;
    virtual void onLoadStatusChanged(int /*status*/, const nlohmann::json& /*allInfo*/) {}
    virtual void onSaveStatusChanged(int /*status*/, const nlohmann::json& /*allInfo*/) {}
};
