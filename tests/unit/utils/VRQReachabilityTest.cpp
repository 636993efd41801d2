#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/platform/services/NotificationCenter.h"
#include "vrq/utils/VRQReachability.h"

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

enum : std::uint32_t {
    R = vrq::kReachabilityFlagsReachable,
    CR = vrq::kReachabilityFlagsConnectionRequired,
    OT = vrq::kReachabilityFlagsConnectionOnTraffic,
    OD = vrq::kReachabilityFlagsConnectionOnDemand,
    IR = vrq::kReachabilityFlagsInterventionRequired,
    W = vrq::kReachabilityFlagsIsWWAN,
};

struct FlagsCase {
    std::uint32_t flags;
    const char* technology; // nullptr: none known
    VRQNetworkStatus expected;
};

class NetworkStatusForFlagsTest : public ::testing::TestWithParam<FlagsCase> {
protected:
    void TearDown() override { vrq::NetworkFlagsSource::shared().injectRadioAccessTechnology(std::nullopt); }
};

TEST_P(NetworkStatusForFlagsTest, MapsFlagsAndRadioTechnologyToAStatus)
{
    const FlagsCase c = GetParam();
    vrq::NetworkFlagsSource::shared().injectRadioAccessTechnology(c.technology ? std::optional<std::string>(c.technology)
                                                                              : std::optional<std::string>(""));
    EXPECT_EQ(VRQReachability::networkStatusForFlags(c.flags), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NetworkStatusForFlagsTest,
    ::testing::Values(FlagsCase{0, nullptr, VRQNotReachable}, FlagsCase{W | CR, nullptr, VRQNotReachable},
                      FlagsCase{R, nullptr, VRQReachableViaLocal}, FlagsCase{R | CR, nullptr, VRQNotReachable},
                      FlagsCase{R | CR | OT, nullptr, VRQReachableViaLocal},
                      FlagsCase{R | CR | OD, nullptr, VRQReachableViaLocal},
                      FlagsCase{R | CR | OT | IR, nullptr, VRQNotReachable},
                      FlagsCase{R | W, vrq::radio::kLTE, VRQReachableVia4G},
                      FlagsCase{R | W, vrq::radio::kEdge, VRQReachableVia2G},
                      FlagsCase{R | W, vrq::radio::kHSDPA, VRQReachableVia3G},
                      FlagsCase{R | W, nullptr, VRQReachableViaWWANUnknown},
                      FlagsCase{R | W, "Unheard-of", VRQReachableViaWWANUnknown},
                      // 5G technologies are never recognised.
                      FlagsCase{R | W, vrq::radio::kNR, VRQReachableViaWWANUnknown},
                      FlagsCase{R | CR | W, vrq::radio::kLTE, VRQReachableVia4G}));

TEST(VRQReachabilityTest, RefusedNamesGiveNothing)
{
    EXPECT_EQ(VRQReachability::reachabilityWithHostName(""), nullptr);
    EXPECT_EQ(VRQReachability::reachabilityWithHostName("bad host name"), nullptr);
    EXPECT_NE(VRQReachability::reachabilityWithHostName("example.test"), nullptr);
    EXPECT_EQ(VRQReachability::reachabilityWithAddress(nullptr), nullptr);
    EXPECT_NE(VRQReachability::reachabilityForInternetConnection(), nullptr);
}

TEST(VRQReachabilityTest, EveryChangeIsAnnouncedOnTheMainThreadWithTheInstance)
{
    auto& reachability = VRQReachability::sharedInstance();
    ASSERT_TRUE(reachability.startNotifier());
    std::vector<VRQNetworkStatus> seen;
    bool allOnMain = true;
    const void* object = nullptr;
    auto token = vrq::NotificationCenter::defaultCenter().addObserver(
        kVRQReachabilityChangedNotification, [&](const vrq::Notification& notification) {
            allOnMain = allOnMain && vrq::isMainThread();
            object = notification.object;
            seen.push_back(reachability.currentReachabilityStatus());
        });
    auto& source = vrq::NetworkFlagsSource::shared();
    std::thread([&] {
        source.injectFlags(0);
        source.injectFlags(vrq::kReachabilityFlagsReachable);
    }).join();
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return seen.size() >= 2; }, 2s));
    vrq::NotificationCenter::defaultCenter().removeObserver(token);
    source.injectFlags(std::nullopt);
    EXPECT_TRUE(allOnMain);
    EXPECT_EQ(object, &reachability);
    EXPECT_EQ(seen.back(), VRQReachableViaLocal);
}

} // namespace
