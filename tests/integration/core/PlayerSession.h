#pragma once

// A host application's side of a play session against the reference back end
// on its own loopback address: the player with a recording delegate, the
// client session posted to "/session" over HTTP, and the remote session started.

#include "ReferenceServer.h"

#include "support/CapturingLogDelegate.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/TempHome.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <httplib.h>

#include <functional>

#include <gtest/gtest.h>

namespace vrqtest {

class PlayerSession {
public:
    // host: a 127.0.0.N of the test's own, since the reconnect port is fixed.
    explicit PlayerSession(const std::string& host, double connectTimeout = 10.0)
    {
        vrqserver::ReferenceServer::Options options;
        options.host = host;
        server = vrqserver::ReferenceServer::start(options);
        if (!server)
            return;
        VRQHttpHelper::setBaseHost(server->origin());
        VRQHttpHelper::setExperienceSessionOrigin(server->origin());
        player = VRQGamePlayer::create(nlohmann::json::object(), delegate);
        VRQGamePlayer::setLogger(&logs, 0);
        player->setConnectTimeout(connectTimeout);
        player->videoView()->setFrame({{0, 0}, {1280, 720}});
    }

    ~PlayerSession()
    {
        // VRQ_TEST_LOG=1 prints what the kit logged, to see why a test failed.
        if (std::getenv("VRQ_TEST_LOG"))
            for (const auto& [level, line] : logs.lines())
                std::fprintf(stderr, "kit[%d] %s\n", level, line.c_str());
        if (player)
            player->stopGame();
        player.reset();
        if (server)
            server->stop();
        VRQGamePlayer::setLogger(nullptr, 4);
    }

    bool ready() const { return server && player; }

    bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout = std::chrono::seconds(15))
    {
        return vrq::runMainLoopUntil(predicate, timeout);
    }
    bool waitForEvent(const std::string& event, std::size_t count = 1,
                      std::chrono::milliseconds timeout = std::chrono::seconds(15))
    {
        return waitFor([&] { return delegate->count(event) >= count; }, timeout);
    }
    void settle(std::chrono::milliseconds time) { vrq::runMainLoopUntil([] { return false; }, time); }

    // What the host's back end answers for the client session.
    std::string remoteSession()
    {
        httplib::Client client(server->origin());
        auto response = client.Post("/session", delegate->clientSession(), "text/plain");
        return response && response->status == 200 ? response->body : std::string();
    }

    // Up to the first frame and the first heartbeat reply (whose token a
    // reconnect needs), as a host would play it.
    bool play()
    {
        if (!waitForEvent("init"))
            return false;
        VRQError error;
        return player->startGameWithRemoteSession(remoteSession(), &error) && waitForEvent("video")
               && waitFor([] { return !VRQSDKMonitor::sharedInstance().currentSDKReport().token().empty(); });
    }

    std::shared_ptr<vrqserver::GameSession> serverSession() const { return server->gameServer().latestSession(); }

    // Messages the latest server session received on a label, parsed.
    std::vector<nlohmann::json> received(const std::string& label) const
    {
        std::vector<nlohmann::json> messages;
        if (auto session = serverSession())
            for (const auto& message : session->messageLog().messagesOn(label))
                messages.push_back(nlohmann::json::parse(message.bytes, nullptr, false));
        return messages;
    }

    // The server's virtual controller, read through its control API, once
    // `ready` holds for it (or after 5 s). An instruction is counted before it
    // is performed, so a test waits for the state it expects, not a count.
    nlohmann::json controllerWhen(const std::function<bool(const nlohmann::json&)>& ready)
    {
        nlohmann::json state;
        waitFor(
            [&] {
                httplib::Client client(server->origin());
                const auto response = client.Get("/control/gamepad");
                state = response ? nlohmann::json::parse(response->body, nullptr, false) : nlohmann::json();
                return state.is_object() && ready(state);
            },
            std::chrono::seconds(5));
        return state;
    }

    TempHome home;
    CapturingLogDelegate logs;
    std::shared_ptr<RecordingPlayerDelegate> delegate = std::make_shared<RecordingPlayerDelegate>();
    std::unique_ptr<vrqserver::ReferenceServer> server;
    std::shared_ptr<VRQGamePlayer> player;
};

} // namespace vrqtest
