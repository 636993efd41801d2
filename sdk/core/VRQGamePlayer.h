#pragma once

#include "vrq/core/VRQGameArchiveDelegate.h"
#include "vrq/core/VRQGamePlayerDelegate.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/utils/VRQError.h"
#include "vrq/utils/VRQWeakDictionary.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class VRQCustomTransChannel;
class VRQCustomTransChannelDelegate;
class VRQGameController;
class VRQGameMessageHandler;
class VRQGameVideoView;
class VRQLogDelegate;
class VRQWebrtClient;
struct VRQRemoteSession;

namespace vrq {
class PendingLimit;
class Timer;
}

enum VRQGameStatus : std::uint64_t {
    VRQGameStatusNone = 0,
    VRQGameStatusInited = 1,
    // 2 is never assigned, so that the others keep their numbers.
    VRQGameStatusPlaying = 3,
    VRQGameStatusReconnecting = 4,
    VRQGameStatusStopped = 5,
};

// One cloud-game play session: the host creates it, gets the client session
// through onInitSuccess, starts it with the back end's remote session and is
// told every change through its delegate. It routes the server's data-channel
// messages, sends input, reconnects after losses and runs the game operations.
//
// Created and owned through std::shared_ptr. Public operations are called on
// the main thread unless their comment says otherwise. The session's state
// lives on the main thread: events of the engine and the background queues
// hop there. Nothing but the host keeps the player alive: dropping the last
// reference ends the session as stopGame() does.
class VRQGamePlayer : public std::enable_shared_from_this<VRQGamePlayer>,
                      public VRQWebRTCDataHandler,
                      private VRQSdkRtcDelegate {
public:
    // Called with the reply's "data" on the main thread, or with the VRQSDK
    // error 10021 on a background queue when no reply came in time.
    using OnceCallback = std::function<void(std::optional<VRQError> error, nlohmann::json data)>;

    static constexpr const char* kErrorDomain = "VRQSDK";

    // Makes the player's RTC client; the default makes a VRQWebrtClient.
    using RtcClientFactory =
        std::function<std::shared_ptr<VRQWebrtClient>(const nlohmann::json& params, VRQSdkRtcDelegate* delegate)>;

    // params go to the RTC client unchanged. The delegate is held weakly.
    static std::shared_ptr<VRQGamePlayer> create(const nlohmann::json& params,
                                                 std::weak_ptr<VRQGamePlayerDelegate> delegate,
                                                 RtcClientFactory makeClient = nullptr);
    static void setLogger(VRQLogDelegate* logger, int minLevel);
    // Starts the kit's one-time set-up (the media engine, its decoder and its
    // DTLS certificate) on a background thread and returns at once. Optional:
    // a host that calls it at launch spares its first game that wait.
    static void prepare();
    ~VRQGamePlayer() override;
    VRQGamePlayer(const VRQGamePlayer&) = delete;
    VRQGamePlayer& operator=(const VRQGamePlayer&) = delete;

    // Lifecycle. startGameWithRemoteSession throws vrq::VRQAssertionError off the main thread.
    bool startGameWithRemoteSession(const std::string& remoteSession, VRQError* error);
    bool playGameWithRemoteSdp(const nlohmann::json& remoteSession);
    void stopGame();
    void setConnectTimeout(double seconds);
    nlohmann::json currentStatisReport() const;

    // Reconnection.
    void reconnectRemote();

    // Game operations. The error location given to startGameWithExperienceCode
    // must stay valid until the start has run (or be null).
    void startGameWithExperienceCode(const std::string& code, VRQError* error);
    void restartGame();
    void pauseResumeGame(bool pause);
    void setStreamBitrateMix(std::uint32_t minKbps, std::uint32_t maxKbps, std::int32_t fps);
    void setVolumeScale(float scale);
    std::shared_ptr<VRQGameVideoView> videoView() const;
    double videoViewScale() const;
    void setVideoViewEnablePinch(bool enable);
    void resetVideoViewFrame();
    void setVideoViewInsets(vrq::EdgeInsets insets);
    std::int64_t videoOrientation() const { return m_videoOrientation.load(); }

    // Sending; callable from any thread.
    void sendMessage(const nlohmann::json& message, const std::string& label);
    bool sendCustomData(const std::string& data, const std::string& label);
    void sendKeycodeMessage(const nlohmann::json& message);
    void sendAckMessage(const nlohmann::json& message, OnceCallback onceCallback);

    // Host handlers for server message types. A handler is not owned: remove
    // it before destroying it.
    void registerMessageHandler(VRQGameMessageHandler* handler, const std::string& type);
    void removeMessageHandler(VRQGameMessageHandler* handler, const std::string& type);
    bool callMessageHandle(const std::string& type, const nlohmann::json& message);

    // Data-channel housekeeping, forwarded to the RTC client.
    std::int32_t getDataChannelState(const std::string& label) const;
    void closeDataChannelWithLabel(const std::string& label);
    void registDataChannelHandler(std::weak_ptr<VRQWebRTCDataHandler> handler, const std::string& label);
    void unRegistDataChannelHandler(const std::weak_ptr<VRQWebRTCDataHandler>& handler, const std::string& label);

    // A binary pipe to a UDP port on the game server; nothing when the port is
    // below 1, the delegate is missing or the channel cannot be created.
    std::shared_ptr<VRQCustomTransChannel> openCustomTransChannel(std::int32_t remotePort,
                                                                  std::weak_ptr<VRQCustomTransChannelDelegate> delegate);

    // Accessors.
    std::shared_ptr<VRQGamePlayerDelegate> delegate() const;
    void setDelegate(std::weak_ptr<VRQGamePlayerDelegate> delegate);
    std::shared_ptr<VRQGameArchiveDelegate> archiveDelegate() const;
    void setArchiveDelegate(std::weak_ptr<VRQGameArchiveDelegate> delegate);
    std::shared_ptr<VRQGameController> gameController() const { return m_gameController; }
    std::shared_ptr<VRQWebrtClient> rtcClient() const;
    void setRtcClient(std::shared_ptr<VRQWebrtClient> client);
    VRQGameStatus gameStatus() const { return m_gameStatus.load(); }
    void setGameStatus(VRQGameStatus status) { m_gameStatus.store(status); }

    // Data-channel events from the RTC client (background queue).
    void dataChannelDidChangeState(std::int32_t state, const std::string& label) override;
    void onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& label) override;

private:
    // How a session ended, for endSession: what the host and the monitor hear.
    struct SessionEnd {
        enum class Report { None, StopGame, Disconnect, RemoteSdpError };
        std::optional<int> failure;       // the code of the host's onConnectionFailure, if it hears
        std::optional<VRQError> message;  // sent with that failure
        Report report = Report::None;     // which of the monitor's operations is told
        int reportCode = 0;               // and with which code
        bool closeConnection = false;
    };

    VRQGamePlayer(std::weak_ptr<VRQGamePlayerDelegate> delegate);
    static void initialize();
    void setUp(const nlohmann::json& params, const RtcClientFactory& makeClient);
    void registerFixedHandlers();

    // Lifecycle (main thread).
    bool play(const VRQRemoteSession& remoteSession);
    void endSession(const SessionEnd& end);
    void scheduleConnectTimeout();
    void cancelConnectTimeout();
    void onConnectTimeout();
    void startCheckFPS();
    void stopCheckFPS();
    void doCheckFPS();
    void failSession(int code);

    // Reconnection (main thread).
    bool canTryReConnect() const;
    void doReConnect();
    void requestNewRemoteSDP(const std::string& localSdp);
    void onReconnectAnswer(const std::string& body);
    void onNetworkStatusChanged();

    // Routing (background queue).
    void onSvMessage(const nlohmann::json& message);
    void onHbMessage(const nlohmann::json& message);
    void onAckMessage(const nlohmann::json& message);
    void onKmMessage(const nlohmann::json& message);
    void onCdMessage(const nlohmann::json& message);
    void handleOrientationMessage(const nlohmann::json& message);
    void onAckTimeout(std::int64_t seq);
    OnceCallback takeOnceCallback(std::int64_t seq);
    void removeAckTimer(std::int64_t seq);
    void sendGameControl(const nlohmann::json& data);

    // Runs fn on the main thread if the player still exists then.
    void postToMain(std::function<void(VRQGamePlayer&)> fn);
    // The same for what a server message asks of the host, within a limit:
    // a peer that floods cannot pile up tasks on the main thread.
    void deliverToMain(std::function<void(VRQGamePlayer&)> fn);

    // RTC client events.
    void onRectChangeOldSize(vrq::Size oldSize, vrq::Size newSize) override;
    void onDisconnection() override;
    void onPeerReady() override;
    void onPeerConnected() override;
    void onSetRemoteDescriptionFailed(const VRQError& error) override;
    void onSetLocalDescriptionSuccess() override;
    void onSetLocalDescriptionFailure(const VRQError& error) override;
    void onFirstFrameDraw() override;

    std::shared_ptr<VRQGameController> m_gameController;
    // Main thread only.
    std::shared_ptr<vrq::Timer> m_checkFpsTimer;
    std::shared_ptr<vrq::Timer> m_connectTimeoutTimer;
    std::int32_t m_noVideoFrameDuration = 0;
    std::int32_t m_tryConnectTime = 3;
    bool m_isPaused = false;
    bool m_awaitingReconnectAnswer = false; // a reconnect's offer is out and its answer not in
    std::uint64_t m_networkObserver = 0;

    std::atomic<double> m_connectTimeout = 10.0;
    std::atomic<std::int64_t> m_videoOrientation = 1;
    std::atomic<std::int64_t> m_oldNetworkStatus = 0;
    std::atomic<VRQGameStatus> m_gameStatus = VRQGameStatusNone;

    // Pending acknowledged messages by sequence number; one lock for both maps.
    std::mutex m_ackMutex;
    std::map<std::int64_t, OnceCallback> m_onceAckHandleMap;
    std::map<std::int64_t, std::shared_ptr<vrq::Timer>> m_onceAckTimeoutMap;

    mutable std::mutex m_mutex; // guards the members below
    std::weak_ptr<VRQGamePlayerDelegate> m_delegate;
    const std::shared_ptr<vrq::PendingLimit> m_serverDeliveries;
    std::weak_ptr<VRQGameArchiveDelegate> m_archiveDelegate;
    std::shared_ptr<VRQWebrtClient> m_rtcClient;
    VRQWeakDictionary<VRQGameMessageHandler> m_messageHandler;
};
