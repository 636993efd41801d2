#pragma once

#include "vrq/platform/engine/RtcTypes.h"

#include <cstdint>
#include <string>

// A consumer of one data channel's events. Called on a background queue, so
// two messages may be handled at the same time.
class VRQWebRTCDataHandler {
public:
    virtual ~VRQWebRTCDataHandler() = default;
    // state: 0 connecting, 1 open, 2 closing, 3 closed.
    virtual void dataChannelDidChangeState(std::int32_t state, const std::string& label) = 0;
    virtual void onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& label) = 0;
};
