#include "vrq/utils/VRQReachability.h"

#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/platform/services/NotificationCenter.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <set>

namespace {

using TechnologyList = std::set<std::string>;

const TechnologyList& list2G()
{
    static const TechnologyList list{vrq::radio::kCDMA1x, vrq::radio::kGPRS, vrq::radio::kEdge};
    return list;
}

const TechnologyList& list3G()
{
    static const TechnologyList list{vrq::radio::keHRPD,       vrq::radio::kCDMAEVDORevB, vrq::radio::kCDMAEVDORevA,
                                     vrq::radio::kCDMAEVDORev0, vrq::radio::kHSUPA,        vrq::radio::kWCDMA,
                                     vrq::radio::kHSDPA};
    return list;
}

const TechnologyList& list4G()
{
    static const TechnologyList list{vrq::radio::kLTE};
    return list;
}

// Kept as a list but never filled: no link is ever reported as 5G.
const TechnologyList& list5G()
{
    static const TechnologyList list;
    return list;
}

bool isValidHostName(const std::string& name)
{
    if (name.empty() || name.size() > 253)
        return false;
    return std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '.' || c == ':' || c == '_';
    });
}

} // namespace

VRQReachability::VRQReachability(std::string target)
    : m_target(std::move(target))
{
}

VRQReachability::~VRQReachability()
{
    stopNotifier();
}

std::shared_ptr<VRQReachability> VRQReachability::reachabilityWithHostName(const std::string& hostName)
{
    if (!isValidHostName(hostName))
        return nullptr;
    return std::shared_ptr<VRQReachability>(new VRQReachability(hostName));
}

std::shared_ptr<VRQReachability> VRQReachability::reachabilityWithAddress(const sockaddr* address)
{
    if (!address)
        return nullptr;
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address->sa_family == AF_INET) {
        const auto* v4 = reinterpret_cast<const sockaddr_in*>(address);
        inet_ntop(AF_INET, &v4->sin_addr, text.data(), text.size());
    } else if (address->sa_family == AF_INET6) {
        const auto* v6 = reinterpret_cast<const sockaddr_in6*>(address);
        inet_ntop(AF_INET6, &v6->sin6_addr, text.data(), text.size());
    } else {
        return nullptr;
    }
    return std::shared_ptr<VRQReachability>(new VRQReachability(text.data()));
}

std::shared_ptr<VRQReachability> VRQReachability::reachabilityForInternetConnection()
{
    sockaddr_in zero{};
    zero.sin_family = AF_INET;
    return reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&zero));
}

VRQReachability& VRQReachability::sharedInstance()
{
    static std::shared_ptr<VRQReachability>* shared =
        new std::shared_ptr<VRQReachability>(reachabilityForInternetConnection());
    return **shared;
}

bool VRQReachability::startNotifier()
{
    if (m_changeToken >= 0)
        return true;
    m_changeToken = vrq::NetworkFlagsSource::shared().addChangeHandler(
        [this] { vrq::NotificationCenter::defaultCenter().post(kVRQReachabilityChangedNotification, this); });
    return m_changeToken >= 0;
}

void VRQReachability::stopNotifier()
{
    if (m_changeToken < 0)
        return;
    vrq::NetworkFlagsSource::shared().removeChangeHandler(m_changeToken);
    m_changeToken = -1;
}

VRQNetworkStatus VRQReachability::currentReachabilityStatus() const
{
    return networkStatusForFlags(vrq::NetworkFlagsSource::shared().currentFlags());
}

bool VRQReachability::connectionRequired() const
{
    return (vrq::NetworkFlagsSource::shared().currentFlags() & vrq::kReachabilityFlagsConnectionRequired) != 0;
}

VRQNetworkStatus VRQReachability::networkStatusForFlags(std::uint32_t flags)
{
    if (!(flags & vrq::kReachabilityFlagsReachable))
        return VRQNotReachable;
    VRQNetworkStatus status = VRQNotReachable;
    if (!(flags & vrq::kReachabilityFlagsConnectionRequired))
        status = VRQReachableViaLocal;
    const bool automatic = flags & (vrq::kReachabilityFlagsConnectionOnDemand | vrq::kReachabilityFlagsConnectionOnTraffic);
    if (automatic && !(flags & vrq::kReachabilityFlagsInterventionRequired))
        status = VRQReachableViaLocal;
    if (!(flags & vrq::kReachabilityFlagsIsWWAN))
        return status;

    const std::string technology = vrq::NetworkFlagsSource::shared().currentRadioAccessTechnology();
    if (technology.empty())
        return VRQReachableViaWWANUnknown;
    if (list2G().count(technology))
        return VRQReachableVia2G;
    if (list3G().count(technology))
        return VRQReachableVia3G;
    if (list4G().count(technology))
        return VRQReachableVia4G;
    if (list5G().count(technology))
        return VRQReachableVia5G;
    return VRQReachableViaWWANUnknown;
}
