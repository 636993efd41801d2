#pragma once

#include "vrq/core/VRQGamePlayerDelegate.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class VRQGamePlayer;

// The smallest host the player benchmarks need: it creates a player with a
// laid-out video view, gets the remote session from the back end's
// "/session" once the client session is ready, starts the game and records
// when each delegate call came. Main thread only.
class BenchPlayerHost : public VRQGamePlayerDelegate, public std::enable_shared_from_this<BenchPlayerHost> {
public:
    using Clock = std::chrono::steady_clock;

    static std::shared_ptr<BenchPlayerHost> create(const std::string& backendOrigin);
    // Stops the game; the player is released with the host.
    void stop();

    const std::shared_ptr<VRQGamePlayer>& player() const { return m_player; }
    // When startGameWithRemoteSession was called.
    std::optional<Clock::time_point> startedAt() const { return m_startedAt; }
    const std::vector<Clock::time_point>& videoShows() const { return m_videoShows; }
    const std::vector<int>& reconnectReasons() const { return m_reconnectReasons; }
    // The failure code, or -1 when the back end or the start failed.
    std::optional<int> failure() const { return m_failure; }

    void onInitSuccess(const std::string& clientSession) override;
    void onInitFailure(int code, const VRQError& msg) override;
    void onConnectionFailure(int code, const std::optional<VRQError>& msg) override;
    void onStartReConnectWithReason(int code) override;
    void onVideoShow() override;
    void onVideoSizeChanged(vrq::Size) override {}

private:
    explicit BenchPlayerHost(std::string backendOrigin) : m_backendOrigin(std::move(backendOrigin)) {}
    void start(const std::string& remoteSession);

    const std::string m_backendOrigin;
    std::shared_ptr<VRQGamePlayer> m_player;
    std::optional<Clock::time_point> m_startedAt;
    std::vector<Clock::time_point> m_videoShows;
    std::vector<int> m_reconnectReasons;
    std::optional<int> m_failure;
};
