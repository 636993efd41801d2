#include "vrq/utils/VRQDeviceId.h"

#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/UserDefaults.h"

#include <mutex>

namespace {

constexpr const char* kDeviceIdKey = "VRQSDK_DEVICE_ID";

} // namespace

std::string vrqDeviceID()
{
    // Never destroyed, like the queues that read it until the process ends.
    static auto* mutex = new std::mutex;
    static auto* cachedId = new std::string;
    std::lock_guard lock(*mutex);
    std::string& cached = *cachedId;
    if (!cached.empty())
        return cached;
    auto& defaults = vrq::UserDefaults::standard();
    cached = defaults.stringForKey(kDeviceIdKey);
    if (cached.empty()) {
        cached = vrq::randomUuid();
        defaults.setObject(cached, kDeviceIdKey);
    }
    return cached;
}
