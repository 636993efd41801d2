#pragma once

#include "ChannelMessageLog.h"
#include "GamepadState.h"
#include "LinkImpairment.h"
#include "MediaLaunch.h"
#include "PointerState.h"
#include "RttDetectSei.h"
#include "SceneOverlay.h"

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace vrq {
class SerialQueue;
class Timer;
} // namespace vrq

namespace vrqserver {

// The game server's side of one play session: the answering peer connection
// for one client offer, the game's video (with round-trip detection SEI on
// every frame) and audio, and the data channels the client opens.
//
// Every message that arrives is recorded in messageLog(), then handed to the
// handler of its label on the session's own serial queue, one at a time, in
// arrival order. "hb" is answered with the session token and the echoed timestamp.
// What the game does with the other channels is installed from outside
// (GameServer's session setup) before the offer is answered.
//
// Engine callbacks arrive on the engine's threads and only record and queue;
// replies are sent from the session's queue. Created and owned through
// std::shared_ptr; tasks hold it weakly.
class GameSession : public vrq::rtc::PeerConnectionObserver,
                    public vrq::rtc::DataChannelObserver,
                    public std::enable_shared_from_this<GameSession> {
public:
    // Runs on the session's queue.
    using ChannelHandler = std::function<void(GameSession& session, const ChannelMessage& message)>;
    // Runs on the session's queue.
    using OpenHandler = std::function<void(GameSession& session, const std::string& label)>;
    // Runs on the engine's thread that delivered the message.
    using InputObserver = std::function<void(const ChannelMessage& message, std::chrono::steady_clock::time_point arrival)>;
    // Called exactly once: with the answer SDP, or with an error.
    using AnswerCompletion = std::function<void(std::optional<std::string> answerSdp, std::optional<vrq::rtc::Error> error)>;

    struct Settings {
        std::string id;
        std::string token;
        std::vector<std::string> iceAddresses; // empty: the engine's default ($VRQ_ICE_ADDRESSES)
        VideoSettings video;
        // Once connected, a session that hears no heartbeat for this long is
        // closed: a client that went away says nothing the engine would notice.
        // Zero keeps sessions until they are closed.
        std::chrono::milliseconds heartbeatTimeout{0};
    };

    // Nothing when the engine cannot create a peer connection.
    static std::shared_ptr<GameSession> create(Settings settings);
    ~GameSession() override;
    GameSession(const GameSession&) = delete;
    GameSession& operator=(const GameSession&) = delete;

    // Applies the client's offer and answers it. The completion runs on the
    // session's queue, or on the closing thread when the session is closed first.
    void answer(const std::string& offerSdp, AnswerCompletion completion);

    // Sends on the channel of that label; false when there is none or it is not open.
    bool send(const std::string& label, const std::string& text);
    bool sendBinary(const std::string& label, const std::string& bytes);

    // Replaces the handler of a label; an empty handler leaves the label's
    // messages recorded but unanswered.
    void setChannelHandler(const std::string& label, ChannelHandler handler);
    // Called once for each channel the client opened, as soon as it is open.
    void setOpenHandler(OpenHandler handler);
    // Called with every "km" message the moment it arrives, before it is
    // recorded or queued, with the steady-clock time it arrived.
    void setInputObserver(InputObserver observer);
    // Called once when the session closes, on the closing thread, after its
    // media and channels stopped; at once when it is already closed.
    void addCloseHandler(std::function<void()> handler);

    // While frozen, no video frame is sent; audio and channels go on. After a
    // freeze the video resumes at a keyframe.
    void setVideoFrozen(bool frozen) { m_videoFrozen->store(frozen); }
    bool isVideoFrozen() const { return m_videoFrozen->load(); }
    // What the network does to the video on its way out (see LinkImpairment);
    // clean until set. Retransmissions can recover what it loses.
    void setLinkConditions(const LinkConditions& conditions) { m_link->setConditions(conditions); }
    LinkConditions linkConditions() const { return m_link->conditions(); }
    LinkImpairment::Counts linkCounts() const { return m_link->counts(); }
    // The connection's standard statistics (e.g. "outbound-rtp" with the NACKs
    // and key-frame requests the client sent), on the engine's thread; an
    // empty report when the session is closed.
    void statistics(std::function<void(vrq::StatsReport)> completion) const;
    // The line drawn over the scene (empty: none), e.g. the last input.
    void setSceneText(const std::string& text) { m_overlay->setText(text); }
    std::string sceneText() const { return m_overlay->text(); }
    // Touch and mouse input to draw over the scene (see PointerState); false
    // when the message is not such input or is malformed.
    bool applyPointerInput(const nlohmann::json& input) { return m_pointer->apply(input); }
    PointerState::Snapshot pointerState() const { return m_pointer->snapshot(); }
    // The virtual controller and the keys held, also drawn over the scene (see
    // GamepadState); false when the message is not such input or is malformed.
    bool applyGamepadInput(const nlohmann::json& input) { return m_gamepad->apply(input); }
    // Records a key sequence's "keys" and returns the inputs to perform, in order.
    std::vector<nlohmann::json> recordKeySequence(const nlohmann::json& keys) { return m_gamepad->recordSequence(keys); }
    GamepadState::Snapshot gamepadState() const { return m_gamepad->snapshot(); }

    const std::string& id() const { return m_settings.id; }
    const std::string& token() const { return m_settings.token; }
    const ChannelMessageLog& messageLog() const { return m_messageLog; }
    // Labels of the channels the client opened that are open now.
    std::vector<std::string> openChannels() const;
    vrq::rtc::PeerConnectionState connectionState() const { return m_connectionState.load(); }
    bool isClosed() const;
    // Whether the client's channel of this label is open on this side.
    bool isChannelOpen(const std::string& label) const;

    // Stops media and channels; an answer still pending fails. Idempotent.
    // Never call it from an engine callback: the engine's threads are stopped here.
    void close();

    // PeerConnectionObserver, on the engine's threads.
    void didChangeConnectionState(vrq::rtc::PeerConnectionState state) override;
    void didChangeIceConnectionState(vrq::rtc::IceConnectionState state) override;
    void didAddStream(int videoTracks, int audioTracks) override;
    void didOpenDataChannel(std::shared_ptr<vrq::rtc::DataChannel> channel) override;

    // DataChannelObserver, on the engine's threads.
    void dataChannelDidChangeState(vrq::rtc::DataChannel& channel) override;
    void dataChannelDidReceiveMessage(vrq::rtc::DataChannel& channel, const vrq::rtc::DataBuffer& buffer) override;

private:
    class PendingAnswer;

    explicit GameSession(Settings settings);
    vrq::rtc::Configuration configuration() const;
    vrq::rtc::SendMedia sendMedia() const;
    void post(std::function<void(GameSession&)> task);
    static void hop(const std::weak_ptr<GameSession>& weak, std::function<void(GameSession&)> task);
    void createAnswer(const std::shared_ptr<PendingAnswer>& pending);
    void setAnswer(const std::shared_ptr<PendingAnswer>& pending, const vrq::rtc::SessionDescription& answer);
    void completeAnswer(const std::shared_ptr<PendingAnswer>& pending);
    void startHeartbeatWatch();
    void checkHeartbeat();
    void dispatch(const ChannelMessage& message);
    void announceIfOpen(const std::string& label);
    void observeInput(const ChannelMessage& message, std::chrono::steady_clock::time_point arrival);
    void onHeartbeat(const ChannelMessage& message);
    bool sendBuffer(const std::string& label, vrq::rtc::DataBuffer buffer);
    std::shared_ptr<vrq::rtc::AnsweringPeerConnection> connection() const;

    const Settings m_settings;
    const std::shared_ptr<RttDetectSei> m_rttDetect = std::make_shared<RttDetectSei>();
    const std::shared_ptr<SceneOverlay> m_overlay = std::make_shared<SceneOverlay>();
    const std::shared_ptr<PointerState> m_pointer = std::make_shared<PointerState>();
    const std::shared_ptr<GamepadState> m_gamepad = std::make_shared<GamepadState>();
    const std::shared_ptr<std::atomic<bool>> m_videoFrozen = std::make_shared<std::atomic<bool>>(false);
    const std::shared_ptr<LinkImpairment> m_link = std::make_shared<LinkImpairment>();
    ChannelMessageLog m_messageLog;
    std::atomic<vrq::rtc::PeerConnectionState> m_connectionState = vrq::rtc::PeerConnectionState::New;
    std::atomic<std::int64_t> m_lastHeartbeatMs = 0;

    mutable std::mutex m_mutex; // guards the members below
    std::shared_ptr<vrq::rtc::AnsweringPeerConnection> m_connection;
    std::map<std::string, std::shared_ptr<vrq::rtc::DataChannel>> m_channels;
    std::map<std::string, ChannelHandler> m_handlers;
    OpenHandler m_openHandler;
    std::vector<std::function<void()>> m_closeHandlers;
    std::shared_ptr<PendingAnswer> m_pendingAnswer;
    std::shared_ptr<vrq::Timer> m_heartbeatWatch; // runs on m_queue; cancelled by close()
    bool m_closed = false;

    std::set<std::string> m_announced; // labels whose opening was handled; used on m_queue only
    mutable std::mutex m_observerMutex; // guards m_inputObserver alone: taken on the engine's threads
    InputObserver m_inputObserver;

    // Last member: destroyed first, so that no queued task outlives the members it reads.
    std::unique_ptr<vrq::SerialQueue> m_queue;
};

} // namespace vrqserver
