#pragma once

#include "FuzzRtcClient.h"

#include "vrq/core/VRQCustomTransChannel.h"
#include "vrq/core/VRQGamePlayer.h"

#include <memory>

// One game player on an engine-less RTC client, made once per fuzz process:
// its home is a scratch folder and every HTTP request it makes goes to a
// closed port on loopback.
class FuzzSession {
public:
    static FuzzSession& shared();

    const std::shared_ptr<VRQGamePlayer>& player() const { return m_player; }
    const std::shared_ptr<FuzzRtcClient>& client() const { return m_client; }
    const std::shared_ptr<VRQCustomTransChannel>& customChannel() const { return m_customChannel; }

    // Runs what the input posted to the main thread, without waiting for
    // anything that is not due yet.
    static void runPendingMainTasks();

private:
    FuzzSession();

    std::shared_ptr<FuzzRtcClient> m_client;
    std::shared_ptr<VRQGamePlayer> m_player;
    std::shared_ptr<VRQCustomTransChannelDelegate> m_channelDelegate;
    std::shared_ptr<VRQCustomTransChannel> m_customChannel;
};
