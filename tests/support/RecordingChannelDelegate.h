#pragma once

#include "vrq/core/VRQCustomTransChannelDelegate.h"

#include <string>
#include <vector>

namespace vrqtest {

// Records a custom channel's callbacks as "success:PORT" and
// "failed:CODE:PORT", and the data it receives. Called on the main thread only.
class RecordingChannelDelegate : public VRQCustomTransChannelDelegate {
public:
    void onConnSuccessAtRemotePort(std::int32_t port) override { events.push_back("success:" + std::to_string(port)); }
    void onConnFailed(const VRQError& error, std::int32_t port) override
    {
        events.push_back("failed:" + std::to_string(error.code) + ":" + std::to_string(port));
    }
    void onReceiveData(const std::string& data, std::int32_t) override { received.push_back(data); }

    std::vector<std::string> events;
    std::vector<std::string> received;
};

} // namespace vrqtest
