#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vrq {

// Reachability flag bits.
enum ReachabilityFlags : std::uint32_t {
    kReachabilityFlagsReachable = 1u << 1,
    kReachabilityFlagsConnectionRequired = 1u << 2,
    kReachabilityFlagsConnectionOnTraffic = 1u << 3,
    kReachabilityFlagsInterventionRequired = 1u << 4,
    kReachabilityFlagsConnectionOnDemand = 1u << 5,
    kReachabilityFlagsIsWWAN = 1u << 18,
};

// Radio access technologies of a cellular link.
namespace radio {
inline constexpr const char* kGPRS = "GPRS";
inline constexpr const char* kEdge = "Edge";
inline constexpr const char* kWCDMA = "WCDMA";
inline constexpr const char* kHSDPA = "HSDPA";
inline constexpr const char* kHSUPA = "HSUPA";
inline constexpr const char* kCDMA1x = "CDMA1x";
inline constexpr const char* kCDMAEVDORev0 = "CDMAEVDORev0";
inline constexpr const char* kCDMAEVDORevA = "CDMAEVDORevA";
inline constexpr const char* kCDMAEVDORevB = "CDMAEVDORevB";
inline constexpr const char* keHRPD = "eHRPD";
inline constexpr const char* kLTE = "LTE";
inline constexpr const char* kNRNSA = "NRNSA";
inline constexpr const char* kNR = "NR";
} // namespace radio

// The machine's link state as reachability flags, from GIO's network monitor
// and, where NetworkManager answers on D-Bus, its primary connection type.
// That type is read on a thread of its own (the call may take 300 ms), at
// first use and after every network change; until a read ends the last type
// read stands, and a read that changes the flags announces them.
// Tests can inject flags and a radio technology; injected values win until cleared.
// The shared instance lives for the whole process; every method is thread-safe.
class NetworkFlagsSource {
public:
    using ChangeHandler = std::function<void()>;

    // Link states, as GIO's network monitor reports them.
    enum class Connectivity { Local = 1, Limited = 2, Portal = 3, Full = 4 };

    // The first call starts watching the network on the main context.
    static NetworkFlagsSource& shared();

    // The flags for a link state: the mapping currentFlags() applies.
    // primaryConnectionType is NetworkManager's type name ("" when unknown).
    static std::uint32_t flagsFor(bool networkAvailable, Connectivity connectivity,
                                  std::string_view primaryConnectionType);

    std::uint32_t currentFlags();
    std::string currentRadioAccessTechnology(); // "" when unknown or not cellular

    // Handlers run on the main thread, in the order they were added, after the
    // flags changed. Returns a token for removal. A handler removed while a
    // change is being announced is not called any more.
    int addChangeHandler(ChangeHandler handler);
    void removeChangeHandler(int token);

    // Test hooks. Injecting flags announces a change when the current flags differ.
    void injectFlags(std::optional<std::uint32_t> flags);
    void injectRadioAccessTechnology(std::optional<std::string> technology);
    // Reads the link's connection type with this function (on the reading
    // thread) from now on, as after a network change; empty: NetworkManager.
    void injectConnectionTypeReader(std::function<std::string()> reader);

    struct Impl;

private:
    NetworkFlagsSource();
    Impl* m_impl;
};

} // namespace vrq
