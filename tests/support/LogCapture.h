#pragma once

#include "support/CapturingLogDelegate.h"
#include "vrq/log/VRQLogManager.h"

namespace vrqtest {

// For one test: every line the kit logs, at any level, is kept. Whatever
// logging an earlier player set up is ended first.
class LogCapture : public CapturingLogDelegate {
public:
    LogCapture()
    {
        VRQLogManager::sharedManager().finitSDK();
        VRQLogManager::sharedManager().initSDK(this, 0);
    }
    ~LogCapture() override { VRQLogManager::sharedManager().finitSDK(); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
};

} // namespace vrqtest
