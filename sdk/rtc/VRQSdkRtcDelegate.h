#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/utils/VRQError.h"

#include <string>

// The RTC client's events, for the player. The client does not own its
// delegate; the delegate must outlive the client. Methods with a body are
// optional. Threads: size changes, disconnection and the first frame arrive on
// the main thread; the others on the engine's thread.
class VRQSdkRtcDelegate {
public:
    virtual ~VRQSdkRtcDelegate() = default;
    virtual void onRectChangeOldSize(vrq::Size /*oldSize*/, vrq::Size /*newSize*/) {}
    virtual void onDisconnection() {}
    virtual void onPeerReady() {}
    virtual void onPeerConnected() {} // never called by the client
    virtual void onSetRemoteDescriptionFailed(const VRQError& error) = 0;
    virtual void onSetLocalDescriptionSuccess() = 0;
    virtual void onSetLocalDescriptionFailure(const VRQError& error) = 0;
    virtual void onFirstFrameDraw() {}
    virtual void onReceiveTransChannel(const std::string& /*channel*/, const std::string& /*data*/) {} // never called
};
