#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/utils/VRQError.h"

#include <cstdint>
#include <optional>
#include <string>

// The host's view of one play session. Every call arrives on the main thread.
// The player holds its delegate weakly: one that is gone is not called.
// Methods with a body are optional.
class VRQGamePlayerDelegate {
public:
    virtual ~VRQGamePlayerDelegate() = default;

    // The local offer is ready: hand the client session (base64 text) to the back end.
    virtual void onInitSuccess(const std::string& clientSession) = 0;
    // The local offer could not be made (code 10001).
    virtual void onInitFailure(int code, const VRQError& msg) = 0;
    // The session ended for good, with its code.
    virtual void onConnectionFailure(int code, const std::optional<VRQError>& msg) = 0;
    // An automatic reconnect started (10002 peer lost, 10020 no video).
    virtual void onStartReConnectWithReason(int code) = 0;
    // The first video frame of a connection was drawn.
    virtual void onVideoShow() = 0;
    virtual void onVideoSizeChanged(vrq::Size size) = 0;
    // 1 portrait, 3 landscape.
    virtual void onVideoOrientationChanged(std::int64_t /*orientation*/) {}
    // The remote game process reports that it runs.
    virtual void onGameProcessRun() {}
};
