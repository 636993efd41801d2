// The network between the player and the game server really goes away: the
// server runs in a network namespace of its own, joined to this one by a veth
// pair; the link goes down long enough for the loss to be noticed and for the
// reconnect request to fail, comes back, and the session reconnects through it.
#include "support/ChildProcess.h"

#include "support/CapturingLogDelegate.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/Shell.h"
#include "support/TempHome.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/platform/services/NetworkFlagsSource.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <httplib.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// A namespace "vrqcut<pid>" holding one end of a veth pair; the other end
// stays here. 10.231.N.1 is this side, 10.231.N.2 the namespace's.
class NamespaceLink {
public:
    NamespaceLink()
    {
        const auto id = std::to_string(::getpid());
        const auto subnet = "10.231." + std::to_string(::getpid() % 250) + ".";
        m_namespace = "vrqcut" + id;
        m_outside = "vqc" + id;
        m_inside = "vqs" + id;
        m_localAddress = subnet + "1";
        m_remoteAddress = subnet + "2";
        const std::string script = "set -e; ip netns add " + m_namespace + "; ip link add " + m_outside
                                   + " type veth peer name " + m_inside + "; ip link set " + m_inside + " netns "
                                   + m_namespace + "; ip addr add " + m_localAddress + "/30 dev " + m_outside
                                   + "; ip link set " + m_outside + " up; ip -n " + m_namespace + " addr add "
                                   + m_remoteAddress + "/30 dev " + m_inside + "; ip -n " + m_namespace + " link set "
                                   + m_inside + " up; ip -n " + m_namespace + " link set lo up; echo ready";
        m_output = vrqtest::runCommand("(" + script + ") 2>&1");
        m_ready = m_output.find("ready") != std::string::npos;
    }
    ~NamespaceLink()
    {
        vrqtest::runCommand("ip link del " + m_outside + " 2>/dev/null; ip netns del " + m_namespace + " 2>/dev/null");
    }
    bool ready() const { return m_ready; }
    const std::string& whyNot() const { return m_output; }
    // The namespace's end goes down or up: this side loses its carrier, and
    // what is sent meanwhile is lost rather than refused.
    void setUp(bool up) { vrqtest::runCommand("ip -n " + m_namespace + " link set " + m_inside + (up ? " up" : " down")); }
    const std::string& ns() const { return m_namespace; }
    const std::string& localAddress() const { return m_localAddress; }
    const std::string& remoteAddress() const { return m_remoteAddress; }

private:
    std::string m_namespace, m_outside, m_inside, m_localAddress, m_remoteAddress, m_output;
    bool m_ready = false;
};

std::string originFrom(const vrqtest::ChildProcess& server)
{
    const std::string marker = "back end and metrics ingest at ";
    for (const auto& line : server.lines())
        if (const auto at = line.find(marker); at != std::string::npos)
            return line.substr(at + marker.size());
    return {};
}

TEST(LinkCutTest, TheSessionReconnectsWhenTheCutLinkComesBack)
{
#ifndef VRQ_TOOL_vrq_game_server
    GTEST_SKIP() << "the reference server is not built";
#else
    if (::geteuid() != 0)
        GTEST_SKIP() << "creating network namespaces needs root";
    NamespaceLink link;
    if (!link.ready())
        GTEST_SKIP() << "cannot create a network namespace with a veth pair: " << link.whyNot();

    vrqtest::TempHome home;
    vrqtest::ChildProcess server({"/usr/bin/env", "VRQ_ICE_ADDRESSES=" + link.remoteAddress(), "ip", "netns", "exec",
                                  link.ns(), VRQ_TOOL_vrq_game_server, "--host", link.remoteAddress()});
    ASSERT_TRUE(server.started());
    std::string origin;
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !(origin = originFrom(server)).empty(); }, 15s));

    // This side gathers ICE candidates on its end of the link alone.
    ::setenv("VRQ_ICE_ADDRESSES", link.localAddress().c_str(), 1);
    auto events = std::make_shared<vrqtest::RecordingPlayerDelegate>();
    auto player = VRQGamePlayer::create(nlohmann::json::object(), events);
    vrqtest::CapturingLogDelegate logs;
    VRQGamePlayer::setLogger(&logs, 1);
    player->setConnectTimeout(25);
    player->videoView()->setFrame({{0, 0}, {1280, 720}});
    VRQHttpHelper::setBaseHost(origin);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return events->has("init"); }, 10s));
    httplib::Client backEnd(origin);
    auto remote = backEnd.Post("/session", events->clientSession(), "text/plain");
    ASSERT_TRUE(remote && remote->status == 200);
    ASSERT_TRUE(player->startGameWithRemoteSession(remote->body, nullptr));
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        return events->has("video") && !VRQSDKMonitor::sharedInstance().currentSDKReport().token().empty();
    }, 15s));

    // A device that loses its link also loses reachability: the flags follow the link.
    auto& network = vrq::NetworkFlagsSource::shared();
    link.setUp(false);
    network.injectFlags(0u);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return events->has("reconnect:10002"); }, 15s));
    // The reconnect request goes into the dead link and fails there; the
    // player then waits for the network.
    ASSERT_TRUE(vrq::runMainLoopUntil([&] {
        return logs.contains("start requestNewRemoteSDP") && vrq::HttpTransport::shared().pendingCount() == 0;
    }, 20s));
    EXPECT_TRUE(vrq::runMainLoopUntil([&] {
        for (const auto& [level, line] : logs.lines())
            if (line.find("/cloud_gaming/reconnect?token=***") != std::string::npos && line.find(" failed:") != std::string::npos)
                return true;
        return false;
    }, 3s));
    link.setUp(true);
    network.injectFlags(vrq::kReachabilityFlagsReachable);
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return events->count("video") == 2; }, 30s));
    EXPECT_FALSE(events->has("failure:10002"));
    EXPECT_EQ(player->gameStatus(), VRQGameStatusPlaying);

    network.injectFlags(std::nullopt);
    player->stopGame();
    player.reset();
    VRQGamePlayer::setLogger(nullptr, 4);
    server.kill(SIGTERM);
    EXPECT_TRUE(server.waitForExit(10s));
#endif
}

} // namespace
