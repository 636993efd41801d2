#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct sockaddr;

// Network status values.
enum VRQNetworkStatus : std::int64_t {
    VRQNotReachable = 0,
    VRQReachableViaLocal = 1,
    VRQReachableVia2G = 2,
    VRQReachableVia3G = 3,
    VRQReachableVia4G = 4,
    VRQReachableVia5G = 5,
    VRQReachableViaWWANUnknown = 9,
};

// Posted on the main thread at every change of the link, with the
// VRQReachability instance as the object.
inline constexpr const char* kVRQReachabilityChangedNotification = "kVRQReachabilityChangedNotification";

// Watches whether the machine can reach the network and over which kind of link.
class VRQReachability {
public:
    // Nothing when the host name is not a valid name.
    static std::shared_ptr<VRQReachability> reachabilityWithHostName(const std::string& hostName);
    // Nothing when the address is not IPv4 or IPv6.
    static std::shared_ptr<VRQReachability> reachabilityWithAddress(const sockaddr* address);
    static std::shared_ptr<VRQReachability> reachabilityForInternetConnection();
    static VRQReachability& sharedInstance();

    ~VRQReachability();
    VRQReachability(const VRQReachability&) = delete;
    VRQReachability& operator=(const VRQReachability&) = delete;

    // Must be called on the main thread: notifications are posted there.
    bool startNotifier();
    void stopNotifier();
    VRQNetworkStatus currentReachabilityStatus() const;
    bool connectionRequired() const;

    static VRQNetworkStatus networkStatusForFlags(std::uint32_t flags);

private:
    explicit VRQReachability(std::string target);

    std::string m_target; // the host name or address this instance stands for
    int m_changeToken = -1;
};
