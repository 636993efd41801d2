#pragma once

#include "vrq/core/VRQCustomTransChannelDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

class VRQGamePlayer;

namespace vrq {
class PendingLimit;
class Timer;
}

// An app's binary pipe to a UDP port on the game server, over a data channel
// of its own. Made by VRQGamePlayer::openCustomTransChannel; once the channel
// opens it asks the server to bind it to the port. Delegate calls arrive on
// the main thread.
class VRQCustomTransChannel : public VRQWebRTCDataHandler,
                              public std::enable_shared_from_this<VRQCustomTransChannel> {
public:
    static constexpr std::size_t kTransCustomDataMaxLength = 1200;
    // Failure code of a binding reply that names another channel, or none.
    static constexpr int kLabelMismatch = -3;

    static std::shared_ptr<VRQCustomTransChannel> create(const std::shared_ptr<VRQGamePlayer>& player,
                                                         const std::string& label, std::int32_t port,
                                                         std::weak_ptr<VRQCustomTransChannelDelegate> delegate);
    ~VRQCustomTransChannel() override;

    // 0 sent; -1 longer than 1200 bytes (nothing sent); -2 the transport refused it.
    std::int32_t sendData(const std::string& data);
    // Stops delivery; the data channel itself stays open.
    void close();

    std::shared_ptr<VRQCustomTransChannelDelegate> delegate() const;
    void setDelegate(std::weak_ptr<VRQCustomTransChannelDelegate> delegate);
    const std::string& channelLabel() const { return m_channelLabel; }
    std::int32_t remoteUdpPort() const { return m_remoteUdpPort; }
    std::shared_ptr<VRQGamePlayer> weakPlayer() const;
    void setWeakPlayer(std::weak_ptr<VRQGamePlayer> player);
    bool isConnected() const { return m_isConnected.load(); }

    // Data-channel events (background queue).
    void dataChannelDidChangeState(std::int32_t state, const std::string& label) override;
    void onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& label) override;

private:
    VRQCustomTransChannel(std::string label, std::int32_t port, std::weak_ptr<VRQCustomTransChannelDelegate> delegate);
    void startConnect();
    void onBindReply(const std::optional<VRQError>& error, const nlohmann::json& data);

    std::atomic<bool> m_isConnected = false;
    const std::int32_t m_remoteUdpPort;
    const std::string m_channelLabel;
    mutable std::mutex m_mutex; // guards the members below
    std::weak_ptr<VRQCustomTransChannelDelegate> m_delegate;
    // Received data waiting for the main thread.
    const std::shared_ptr<vrq::PendingLimit> m_received;
    std::weak_ptr<VRQGamePlayer> m_weakPlayer;
    std::shared_ptr<vrq::Timer> m_startTimer; // the delayed first binding request
};
