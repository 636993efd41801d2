#pragma once

#include "vrq/platform/engine/RtcPeerConnection.h"
#include "vrq/platform/views/Geometry.h"
#include "vrq/platform/views/VideoView.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

class VRQGameVideoView;
class VRQSdkRtcDelegate;
class VRQWebRTCDataHandler;

namespace vrq {
class PendingLimit;
class Timer;
} // namespace vrq

// One WebRTC peer connection for one play session: the client always offers,
// the game server answers. It owns the data channels by label, routes their
// messages to per-label handlers on a background queue, runs the 1 s heartbeat
// while connected and reports connection and video events to its delegate.
// Public operations are called on the main thread.
class VRQWebrtClient : public std::enable_shared_from_this<VRQWebrtClient>,
                       private vrq::rtc::PeerConnectionObserver,
                       private vrq::rtc::DataChannelObserver,
                       private vrq::VideoViewDelegate {
public:
    static constexpr std::size_t kMaxDataChannels = 9;

    // Builds the view and the peer connection and starts the offer at once.
    // params are accepted and not read. The delegate is not owned.
    static std::shared_ptr<VRQWebrtClient> create(const nlohmann::json& params, VRQSdkRtcDelegate* delegate);
    // Starts the engine's one-time set-up in the background (see VRQGamePlayer::prepare).
    static void prepare();
    ~VRQWebrtClient() override;

    virtual nlohmann::json getClientSession() const;
    virtual void setRemoteSdp(const std::string& sdp);
    virtual void reConnect();
    virtual void close();

    virtual bool createDataChannelWithLabel(const std::string& label);
    void closeDataChannelWithLabel(const std::string& label);
    virtual std::int32_t getDataChannelState(const std::string& label) const;
    // Handlers are held weakly: one that is gone is skipped.
    void registDataChannelHandler(std::weak_ptr<VRQWebRTCDataHandler> handler, const std::string& label);
    void unRegistDataChannelHandler(const std::weak_ptr<VRQWebRTCDataHandler>& handler, const std::string& label);

    bool sendRawData(const std::string& data, const std::string& label);
    virtual bool sendRawData(const std::string& data, const std::string& label, bool isBinary);
    void setVolume(float volume);

    // The local addresses every connection made from now on gathers ICE
    // candidates on (e.g. {"127.0.0.1"} for a server on loopback). Empty, the
    // default: the addresses in $VRQ_ICE_ADDRESSES (comma separated) or, when
    // that is unset too, every address of the machine. Process-wide.
    static void setIceAddresses(std::vector<std::string> addresses);
    static std::vector<std::string> iceAddresses();

    bool isPlanB() const;
    void getH264Info(std::string& profile, int& payloadType) const;
    // SEI payload from the decoder: a "rtt_detect" text goes, minus its first
    // three characters, to the monitor on a background queue.
    static void onSEIData(const std::uint8_t* data, std::size_t length);
    // The detection reply that onSEIData hands the monitor; nothing for a
    // payload that is not one.
    static std::optional<std::string> seiDetection(const std::uint8_t* data, std::size_t length);

    std::shared_ptr<VRQGameVideoView> playView() const { return m_playView; }
    void setPlayView(std::shared_ptr<VRQGameVideoView> view);
    VRQSdkRtcDelegate* delegate() const { return m_delegate.load(); }
    void setDelegate(VRQSdkRtcDelegate* delegate) { m_delegate.store(delegate); }
    std::optional<std::string> remoteSdp() const;
    vrq::rtc::PeerConnectionState connectionState() const;
    // The H.264 decoder element that decodes the video ("none" without a connection).
    std::string videoDecoderName() const;
    // When each step of the current connection's start was reached.
    vrq::rtc::StartTimeline startTimeline() const;

    // Pure forms of the offer inspection, on any SDP text.
    static bool isPlanBSdp(const std::string& sdp);
    static void h264InfoFromSdp(const std::string& sdp, std::string& profile, int& payloadType);

protected:
    // For a client that stands in for this one (a test's): no view and no
    // connection are made. The operations that reach the connection are virtual.
    explicit VRQWebrtClient(VRQSdkRtcDelegate* delegate);
    std::shared_ptr<VRQWebRTCDataHandler> handlerFor(const std::string& label) const;

private:
    // The state of the channel listed under the label; nothing when none is.
    std::optional<std::int32_t> listedChannelState(const std::string& label) const;
    void createPcFactory();
    void createRenderView();
    void createPeerconnection();
    void closePeerconnection();
    void closeAllDataChannel();
    void closeLocally(const std::string& label, const std::shared_ptr<vrq::rtc::DataChannel>& channel);
    bool createDataChannelWithLabel(const std::string& label, bool isInner);
    void setLocalSDP(const vrq::rtc::SessionDescription& description);
    void onTimeSendHeartbeat();
    void startHeartbeat();
    void stopHeartbeat();
    std::shared_ptr<vrq::rtc::PeerConnection> connection() const;

    // Engine callbacks (engine threads).
    void didChangeConnectionState(vrq::rtc::PeerConnectionState state) override;
    void didChangeIceConnectionState(vrq::rtc::IceConnectionState state) override;
    void didAddStream(int videoTracks, int audioTracks) override;
    void didReceiveSei(const std::uint8_t* data, std::size_t length) override;
    void dataChannelDidChangeState(vrq::rtc::DataChannel& channel) override;
    void dataChannelDidReceiveMessage(vrq::rtc::DataChannel& channel, const vrq::rtc::DataBuffer& buffer) override;
    // Render-view callbacks (streaming thread).
    void videoViewDidChangeVideoSize(vrq::VideoView& view, vrq::Size size) override;
    void videoViewIsFirstFrame(vrq::VideoView& view, bool isFirstFrame) override;

    std::atomic<VRQSdkRtcDelegate*> m_delegate;
    std::shared_ptr<VRQGameVideoView> m_playView;
    // Messages handed to the handlers' queue and not yet handled.
    const std::shared_ptr<vrq::PendingLimit> m_handlerBacklog;

    mutable std::mutex m_mutex; // guards everything below: touched from the main and engine threads
    std::shared_ptr<vrq::rtc::PeerConnection> m_connection;
    std::optional<vrq::rtc::SessionDescription> m_localSDP;
    std::optional<std::string> m_remoteSDPStr;
    std::shared_ptr<vrq::Timer> m_hbTimer;
    vrq::Size m_videoSize;
    std::map<std::string, std::shared_ptr<vrq::rtc::DataChannel>> m_dataChannelList;
    std::set<std::string> m_dataChannelLabels;
    std::map<std::string, std::weak_ptr<VRQWebRTCDataHandler>> m_dataChannelHandlers;
};
