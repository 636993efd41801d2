#pragma once

#include "vrq/utils/VRQError.h"

#include <cstdint>
#include <string>

// Events of a custom transmission channel, always on the main thread. The
// channel holds its delegate weakly. Every method is optional.
class VRQCustomTransChannelDelegate {
public:
    virtual ~VRQCustomTransChannelDelegate() = default;
    // The server bound the channel to its UDP port (once per channel).
    virtual void onConnSuccessAtRemotePort(std::int32_t /*port*/) {}
    virtual void onConnFailed(const VRQError& /*error*/, std::int32_t /*port*/) {}
    virtual void onReceiveData(const std::string& /*data*/, std::int32_t /*port*/) {}
};
