#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/NetworkFlagsSource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include <thread>
#include <vector>

using namespace std::chrono_literals;
using vrq::NetworkFlagsSource;
using Connectivity = vrq::NetworkFlagsSource::Connectivity;

namespace {

constexpr std::uint32_t kWifi = vrq::kReachabilityFlagsReachable;
constexpr std::uint32_t kCellular = vrq::kReachabilityFlagsReachable | vrq::kReachabilityFlagsIsWWAN;

// Runs what is already queued for the main thread, such as announcements
// left over from an earlier test.
void drainMainLoop()
{
    bool drained = false;
    vrq::dispatchMainAsync([&] { drained = true; });
    vrq::runMainLoopUntil([&] { return drained; }, 5s);
}

class NetworkFlagsSourceTest : public ::testing::Test {
protected:
    void SetUp() override { drainMainLoop(); }
    void TearDown() override
    {
        for (const int token : m_tokens)
            m_source.removeChangeHandler(token);
        m_source.injectFlags(std::nullopt);
        m_source.injectRadioAccessTechnology(std::nullopt);
        m_source.injectConnectionTypeReader(nullptr);
        drainMainLoop();
    }

    int addHandler(NetworkFlagsSource::ChangeHandler handler)
    {
        m_tokens.push_back(m_source.addChangeHandler(std::move(handler)));
        return m_tokens.back();
    }

    NetworkFlagsSource& m_source = NetworkFlagsSource::shared();
    std::vector<int> m_tokens;
};

} // namespace

TEST_F(NetworkFlagsSourceTest, InjectedFlagsWinUntilCleared)
{
    const std::uint32_t measured = m_source.currentFlags();
    const std::uint32_t injected = measured == kCellular ? kWifi : kCellular;

    m_source.injectFlags(injected);
    EXPECT_EQ(m_source.currentFlags(), injected);
    m_source.injectFlags(std::nullopt);
    EXPECT_EQ(m_source.currentFlags(), measured);
}

TEST_F(NetworkFlagsSourceTest, ChangedFlagsAreAnnouncedOnceOnTheMainThread)
{
    int calls = 0;
    bool allOnMain = true;
    addHandler([&] {
        ++calls;
        allOnMain = allOnMain && vrq::isMainThread();
    });

    const std::uint32_t first = m_source.currentFlags() ^ vrq::kReachabilityFlagsIsWWAN;
    m_source.injectFlags(first);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return calls == 1; }, 5s));

    // The same flags again announce nothing: the next change is the only one seen.
    m_source.injectFlags(first);
    std::thread([&] { m_source.injectFlags(first ^ vrq::kReachabilityFlagsReachable); }).join();
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return calls >= 2; }, 5s));
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(allOnMain);
}

TEST_F(NetworkFlagsSourceTest, HandlerRemovedDuringAnAnnouncementIsNotCalled)
{
    std::vector<std::string> called;
    int second = 0;
    addHandler([&] {
        called.push_back("first");
        m_source.removeChangeHandler(second);
    });
    second = addHandler([&] { called.push_back("second"); });
    addHandler([&] { called.push_back("third"); });

    m_source.injectFlags(m_source.currentFlags() ^ vrq::kReachabilityFlagsIsWWAN);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return called.size() >= 2; }, 5s));
    EXPECT_EQ(called, (std::vector<std::string>{"first", "third"}));
}

// Reading the link's type may take NetworkManager's whole time-out: it is
// read on a thread of its own while the main thread goes on, and a type that
// changes the flags is announced once it is known.
TEST_F(NetworkFlagsSourceTest, TheConnectionTypeIsReadOffTheMainThread)
{
    std::atomic<int> reads{0};
    std::atomic<bool> readOnMain{false};
    std::atomic<bool> announced{false};
    addHandler([&] { announced = true; });
    m_source.injectConnectionTypeReader([&] {
        readOnMain = readOnMain || vrq::isMainThread();
        std::this_thread::sleep_for(300ms); // as slow as a NetworkManager that does not answer
        ++reads;
        return std::string("gsm");
    });
    const auto asked = std::chrono::steady_clock::now();
    const std::uint32_t before = m_source.currentFlags();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 100ms);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return reads > 0; }, 3s));
    EXPECT_FALSE(readOnMain);
    // The type counts only where GIO sees a network at all.
    if (before & vrq::kReachabilityFlagsReachable) {
        EXPECT_TRUE(vrq::runMainLoopUntil([&] { return announced.load(); }, 3s));
        EXPECT_EQ(m_source.currentFlags() & vrq::kReachabilityFlagsIsWWAN, vrq::kReachabilityFlagsIsWWAN);
    }
}

TEST_F(NetworkFlagsSourceTest, RadioTechnologyIsUnknownUnlessInjected)
{
    EXPECT_EQ(m_source.currentRadioAccessTechnology(), "");
    m_source.injectRadioAccessTechnology(std::string(vrq::radio::kLTE));
    EXPECT_EQ(m_source.currentRadioAccessTechnology(), "LTE");
    m_source.injectRadioAccessTechnology(std::nullopt);
    EXPECT_EQ(m_source.currentRadioAccessTechnology(), "");
}

struct LinkCase {
    bool available;
    Connectivity connectivity;
    const char* connectionType;
    std::uint32_t flags;
};

class NetworkFlagsMappingTest : public ::testing::TestWithParam<LinkCase> {};

TEST_P(NetworkFlagsMappingTest, LinkStateGivesFlags)
{
    const LinkCase& link = GetParam();
    EXPECT_EQ(NetworkFlagsSource::flagsFor(link.available, link.connectivity, link.connectionType), link.flags);
}

INSTANTIATE_TEST_SUITE_P(
    LinkStates, NetworkFlagsMappingTest,
    ::testing::Values(
        LinkCase{false, Connectivity::Full, "", 0u},
        LinkCase{false, Connectivity::Local, "gsm", 0u},
        LinkCase{true, Connectivity::Full, "", kWifi},
        LinkCase{true, Connectivity::Full, "802-11-wireless", kWifi},
        LinkCase{true, Connectivity::Full, "802-3-ethernet", kWifi},
        LinkCase{true, Connectivity::Full, "gsm", kCellular},
        LinkCase{true, Connectivity::Full, "cdma", kCellular},
        LinkCase{true, Connectivity::Limited, "", kWifi},
        LinkCase{true, Connectivity::Local, "", kWifi | vrq::kReachabilityFlagsConnectionRequired},
        LinkCase{true, Connectivity::Portal, "",
                 kWifi | vrq::kReachabilityFlagsConnectionRequired | vrq::kReachabilityFlagsInterventionRequired}));
