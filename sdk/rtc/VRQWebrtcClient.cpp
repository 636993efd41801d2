#include "vrq/rtc/VRQWebrtcClient.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/PendingLimit.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQSDKVersion.h"

#include <charconv>
#include <regex>
#include <vector>

using namespace vrq::rtc;

namespace {

constexpr const char* kInnerLabels[] = {"hb", "ack", "sv", "cd", "km"};
constexpr auto kHeartbeatInterval = std::chrono::milliseconds(1000);

// Drops the first three UTF-8 characters of a text.
std::string withoutFirstThreeCharacters(const std::string& text)
{
    std::size_t at = 0;
    for (int dropped = 0; dropped < 3 && at < text.size(); ++dropped) {
        ++at;
        while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
            ++at;
    }
    return text.substr(at);
}

// A payload type's number; digits that do not fit give -1 rather than an exception.
int payloadTypeNumber(const std::string& digits)
{
    int value = -1;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return result.ec == std::errc() ? value : -1;
}

VRQError kitError(const Error& error)
{
    return VRQError{error.domain, error.code, error.description, {}};
}

std::vector<std::string> splitLines(const std::string& sdp)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = sdp.find("\r\n"); end != std::string::npos; end = sdp.find("\r\n", start)) {
        lines.push_back(sdp.substr(start, end - start));
        start = end + 2;
    }
    lines.push_back(sdp.substr(start));
    return lines;
}

} // namespace

std::shared_ptr<VRQWebrtClient> VRQWebrtClient::create(const nlohmann::json& /*params*/, VRQSdkRtcDelegate* delegate)
{
    std::shared_ptr<VRQWebrtClient> client(new VRQWebrtClient(delegate));
    client->createPcFactory();
    client->createRenderView();
    client->createPeerconnection();
    return client;
}

VRQWebrtClient::VRQWebrtClient(VRQSdkRtcDelegate* delegate)
    : m_delegate(delegate)
    , m_handlerBacklog(vrq::PendingLimit::make("messages for the data handlers", vrq::PendingLimit::kHandlerMessages))
{
    // No engine debug output: the kit's own log lines say what happens.
    vrq::rtc::setEngineDebugLevel(4);
    m_dataChannelLabels.insert(std::begin(kInnerLabels), std::end(kInnerLabels));
}

VRQWebrtClient::~VRQWebrtClient()
{
    if (m_playView)
        m_playView->setVideoViewDelegate(nullptr);
    stopHeartbeat();
    if (auto pc = connection())
        pc->close();
}

namespace {

std::mutex gIceAddressesMutex;
std::vector<std::string> gIceAddresses;

} // namespace

void VRQWebrtClient::setIceAddresses(std::vector<std::string> addresses)
{
    std::lock_guard lock(gIceAddressesMutex);
    gIceAddresses = std::move(addresses);
}

std::vector<std::string> VRQWebrtClient::iceAddresses()
{
    std::lock_guard lock(gIceAddressesMutex);
    return gIceAddresses;
}

void VRQWebrtClient::createPcFactory()
{
    vrq::rtc::initializeEngine();
}

void VRQWebrtClient::createRenderView()
{
    m_playView = std::make_shared<VRQGameVideoView>();
    m_playView->setVideoViewDelegate(this);
    std::lock_guard lock(m_mutex);
    m_videoSize = {};
}

void VRQWebrtClient::setPlayView(std::shared_ptr<VRQGameVideoView> view)
{
    if (m_playView)
        m_playView->setVideoViewDelegate(nullptr);
    m_playView = std::move(view);
    if (m_playView)
        m_playView->setVideoViewDelegate(this);
}

std::shared_ptr<PeerConnection> VRQWebrtClient::connection() const
{
    std::lock_guard lock(m_mutex);
    return m_connection;
}

void VRQWebrtClient::createPeerconnection()
{
    VRQ_LOG(1, "createPeerconnection");
    Configuration configuration;
    configuration.iceAddresses = iceAddresses();
    auto pc = PeerConnection::create(configuration, this);
    // Each connection's first decoded frame is announced again.
    m_playView->resetFirstFrame();
    pc->setVideoSink(std::shared_ptr<vrq::rtc::VideoSink>(m_playView, m_playView.get()));
    std::vector<std::string> labels;
    {
        std::lock_guard lock(m_mutex);
        m_connection = pc;
        m_localSDP.reset();
        labels.assign(m_dataChannelLabels.begin(), m_dataChannelLabels.end());
    }
    for (const auto& label : labels)
        createDataChannelWithLabel(label, true);
    pc->addRecvOnlyTransceiver(MediaType::Video);
    pc->addRecvOnlyTransceiver(MediaType::Audio);
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    pc->offer([weak](std::optional<SessionDescription> description, std::optional<Error> error) {
        auto self = weak.lock();
        if (!self)
            return;
        if (description) {
            {
                std::lock_guard lock(self->m_mutex);
                self->m_localSDP = description;
            }
            self->setLocalSDP(*description);
            return;
        }
        const VRQError failure = kitError(error.value_or(Error{"VRQRtc", -1, "no offer"}));
        VRQ_LOG_UPLOAD(1, "onSetLocalDescriptionFailure:%s sdp:%s", failure.toString().c_str(), "");
        if (self->delegate())
            self->delegate()->onSetLocalDescriptionFailure(failure);
    });
}

void VRQWebrtClient::setLocalSDP(const SessionDescription& description)
{
    VRQ_LOG(1, "offer sdp:%s", description.sdp.c_str());
    auto pc = connection();
    if (!pc)
        return;
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    pc->setLocalDescription(description, [weak, sdp = description.sdp](std::optional<Error> error) {
        auto self = weak.lock();
        if (!self || !self->delegate())
            return;
        if (error) {
            VRQ_LOG(3, "set local sdp:%s \nfailed:%s", sdp.c_str(), error->toString().c_str());
            self->delegate()->onSetLocalDescriptionFailure(kitError(*error));
        } else {
            self->delegate()->onSetLocalDescriptionSuccess();
        }
    });
}

void VRQWebrtClient::setRemoteSdp(const std::string& sdp)
{
    VRQ_LOG(1, "answer sdp:%s", sdp.c_str());
    // The connection exists from creation on (close() keeps the closed one,
    // which fails the request at once).
    auto pc = connection();
    if (!pc)
        return;
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    pc->setRemoteDescription({SdpType::Answer, sdp}, [weak, sdp](std::optional<Error> error) {
        auto self = weak.lock();
        if (!self)
            return;
        if (!error) {
            std::lock_guard lock(self->m_mutex);
            self->m_remoteSDPStr = sdp;
            return;
        }
        VRQ_LOG_UPLOAD(3, "setRemoteSdp error %s", error->toString().c_str());
        if (self->delegate())
            self->delegate()->onSetRemoteDescriptionFailed(kitError(*error));
    });
}

std::optional<std::string> VRQWebrtClient::remoteSdp() const
{
    std::lock_guard lock(m_mutex);
    return m_remoteSDPStr;
}

PeerConnectionState VRQWebrtClient::connectionState() const
{
    auto pc = connection();
    return pc ? pc->connectionState() : PeerConnectionState::New;
}

void VRQWebrtClient::prepare()
{
    vrq::rtc::prepareEngine();
}

std::string VRQWebrtClient::videoDecoderName() const
{
    const std::string name = connection() ? vrq::rtc::videoDecoderName() : std::string();
    return name.empty() ? "none" : name;
}

vrq::rtc::StartTimeline VRQWebrtClient::startTimeline() const
{
    auto pc = connection();
    return pc ? pc->startTimeline() : vrq::rtc::StartTimeline{};
}

nlohmann::json VRQWebrtClient::getClientSession() const
{
    std::optional<SessionDescription> local;
    {
        std::lock_guard lock(m_mutex);
        local = m_localSDP;
    }
    const std::string sdp = local ? local->sdp : std::string();
    std::string profile;
    int payloadType = 0;
    h264InfoFromSdp(sdp, profile, payloadType);
    return {
        {"type", stringForType(local ? local->type : SdpType::Offer)},
        {"sdp", sdp},
        {"isPlanB", isPlanBSdp(sdp)},
        {"payloadType", payloadType},
        {"profile", profile},
        {"sdkType", "IOS"},
        {"sdkVersion", VRQSDKVersion},
    };
}

void VRQWebrtClient::reConnect()
{
    closePeerconnection();
    createPeerconnection();
}

void VRQWebrtClient::close()
{
    {
        std::lock_guard lock(m_mutex);
        m_dataChannelHandlers.clear();
    }
    closePeerconnection();
}

void VRQWebrtClient::closePeerconnection()
{
    VRQ_LOG(1, "closePeerconnection");
    stopHeartbeat();
    closeAllDataChannel();
    // Closing clears the engine's observer: no callback of this connection follows.
    if (auto pc = connection())
        pc->close();
}

void VRQWebrtClient::closeAllDataChannel()
{
    std::map<std::string, std::shared_ptr<DataChannel>> channels;
    {
        std::lock_guard lock(m_mutex);
        channels.swap(m_dataChannelList);
    }
    for (auto& [label, channel] : channels)
        closeLocally(label, channel);
}

// A channel closed from this side no longer reports its own state changes
// (the next connection's channel of the same label will): its handler hears
// closing and closed from here, in that order, as other state changes arrive.
void VRQWebrtClient::closeLocally(const std::string& label, const std::shared_ptr<DataChannel>& channel)
{
    channel->setObserver(nullptr);
    channel->close();
    auto handler = handlerFor(label);
    if (!handler)
        return;
    vrq::dispatchGlobalAsync([weakHandler = std::weak_ptr<VRQWebRTCDataHandler>(handler), label] {
        for (const auto state : {DataChannelState::Closing, DataChannelState::Closed})
            if (auto target = weakHandler.lock())
                target->dataChannelDidChangeState(static_cast<std::int32_t>(state), label);
    });
}

bool VRQWebrtClient::createDataChannelWithLabel(const std::string& label)
{
    {
        std::lock_guard lock(m_mutex);
        m_dataChannelLabels.insert(label);
    }
    return createDataChannelWithLabel(label, false);
}

bool VRQWebrtClient::createDataChannelWithLabel(const std::string& label, bool isInner)
{
    VRQ_LOG(1, "open data channel label:%s", label.c_str());
    auto pc = connection();
    if (!pc)
        return false;
    const PeerConnectionState state = pc->connectionState();
    if (!isInner && state != PeerConnectionState::Connected) {
        VRQ_LOG_UPLOAD(2, "open data channel label:%s, pc is not connected[%d]", label.c_str(), static_cast<int>(state));
        return false;
    }
    {
        std::lock_guard lock(m_mutex);
        if (m_dataChannelList.size() >= kMaxDataChannels)
            return false;
    }
    auto channel = pc->createDataChannel(label, true, this);
    if (!channel)
        return false;
    std::shared_ptr<DataChannel> replaced;
    {
        std::lock_guard lock(m_mutex);
        auto& slot = m_dataChannelList[label];
        replaced = std::move(slot);
        slot = std::move(channel);
    }
    if (replaced)
        replaced->setObserver(nullptr);
    return true;
}

void VRQWebrtClient::closeDataChannelWithLabel(const std::string& label)
{
    std::shared_ptr<DataChannel> channel;
    {
        std::lock_guard lock(m_mutex);
        m_dataChannelLabels.erase(label);
        auto it = m_dataChannelList.find(label);
        if (it != m_dataChannelList.end()) {
            channel = std::move(it->second);
            m_dataChannelList.erase(it);
        }
    }
    if (channel)
        closeLocally(label, channel);
}

std::int32_t VRQWebrtClient::getDataChannelState(const std::string& label) const
{
    std::lock_guard lock(m_mutex);
    auto it = m_dataChannelList.find(label);
    return it == m_dataChannelList.end() ? 0 : static_cast<std::int32_t>(it->second->readyState());
}

std::optional<std::int32_t> VRQWebrtClient::listedChannelState(const std::string& label) const
{
    std::lock_guard lock(m_mutex);
    const auto it = m_dataChannelList.find(label);
    if (it == m_dataChannelList.end())
        return std::nullopt;
    return static_cast<std::int32_t>(it->second->readyState());
}

void VRQWebrtClient::registDataChannelHandler(std::weak_ptr<VRQWebRTCDataHandler> handler, const std::string& label)
{
    std::lock_guard lock(m_mutex);
    m_dataChannelHandlers[label] = std::move(handler);
}

void VRQWebrtClient::unRegistDataChannelHandler(const std::weak_ptr<VRQWebRTCDataHandler>& /*handler*/,
                                                const std::string& label)
{
    // Whatever handler holds the label is removed, as the caller owns the label.
    std::lock_guard lock(m_mutex);
    m_dataChannelHandlers.erase(label);
}

std::shared_ptr<VRQWebRTCDataHandler> VRQWebrtClient::handlerFor(const std::string& label) const
{
    std::lock_guard lock(m_mutex);
    auto it = m_dataChannelHandlers.find(label);
    return it == m_dataChannelHandlers.end() ? nullptr : it->second.lock();
}

bool VRQWebrtClient::sendRawData(const std::string& data, const std::string& label)
{
    return sendRawData(data, label, false);
}

bool VRQWebrtClient::sendRawData(const std::string& data, const std::string& label, bool isBinary)
{
    std::shared_ptr<DataChannel> channel;
    {
        std::lock_guard lock(m_mutex);
        auto it = m_dataChannelList.find(label);
        if (it != m_dataChannelList.end())
            channel = it->second;
    }
    if (!channel) {
        VRQ_LOG(2, "label[%s] data channel is not exist", label.c_str());
        return false;
    }
    if (channel->readyState() != DataChannelState::Open) {
        VRQ_LOG(2, "label[%s] data channel is not opened", label.c_str());
        return false;
    }
    if (!channel->sendData({data, isBinary})) {
        VRQ_LOG_UPLOAD(2, "label[%s] data sendData data failed, data.length:%zu", label.c_str(), data.size());
        return false;
    }
    return true;
}

void VRQWebrtClient::setVolume(float volume)
{
    if (volume < 0.00001f)
        volume = 0.0f;
    auto pc = connection();
    if (!pc)
        return;
    for (const auto& transceiver : pc->transceivers()) {
        if (transceiver.mediaType != MediaType::Audio || transceiver.direction != TransceiverDirection::RecvOnly)
            continue;
        pc->setAudioVolume(static_cast<double>(volume));
        VRQ_LOG(1, "setVolume %.2f", static_cast<double>(volume));
    }
}

void VRQWebrtClient::startHeartbeat()
{
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    auto timer = vrq::Timer::onMain(kHeartbeatInterval, true, [weak] {
        if (auto self = weak.lock())
            self->onTimeSendHeartbeat();
    });
    std::shared_ptr<vrq::Timer> previous;
    {
        std::lock_guard lock(m_mutex);
        previous = std::exchange(m_hbTimer, std::move(timer));
    }
    if (previous)
        previous->cancel();
}

void VRQWebrtClient::stopHeartbeat()
{
    std::shared_ptr<vrq::Timer> timer;
    {
        std::lock_guard lock(m_mutex);
        timer = std::move(m_hbTimer);
    }
    if (timer)
        timer->cancel();
}

// Statistics are requested now and arrive later: the message sent here
// carries the figures of earlier ticks.
void VRQWebrtClient::onTimeSendHeartbeat()
{
    auto pc = connection();
    if (!pc)
        return;
    auto& monitor = VRQSDKMonitor::sharedInstance();
    pc->legacyStatistics([](std::vector<vrq::LegacyStatsReport> reports) { VRQSDKMonitor::sharedInstance().updateRTCInfo(reports); });
    pc->statistics([](vrq::StatsReport report) { VRQSDKMonitor::sharedInstance().updateRtcStats(report); });
    if (auto message = vrq_toJsonData(monitor.createHeartbeatMessage()))
        sendRawData(*message, "hb");
}

bool VRQWebrtClient::isPlanB() const
{
    std::lock_guard lock(m_mutex);
    return m_localSDP && isPlanBSdp(m_localSDP->sdp);
}

bool VRQWebrtClient::isPlanBSdp(const std::string& sdp)
{
    return sdp.find("mid:video") != std::string::npos || sdp.find("mid:audio") != std::string::npos
           || sdp.find("mid:data") != std::string::npos;
}

void VRQWebrtClient::getH264Info(std::string& profile, int& payloadType) const
{
    std::string sdp;
    {
        std::lock_guard lock(m_mutex);
        if (m_localSDP)
            sdp = m_localSDP->sdp;
    }
    h264InfoFromSdp(sdp, profile, payloadType);
}

// Among the H.264 payload types whose fmtp names a constrained-baseline
// profile-level-id, the last one visited (in ascending payload-type order) wins.
void VRQWebrtClient::h264InfoFromSdp(const std::string& sdp, std::string& profile, int& payloadType)
{
    static const std::regex rtpmap(R"(^a=rtpmap:(\d+) H264/)");
    static const std::regex fmtp(R"(^a=fmtp:(\d+) (\S+)$)");
    static const std::regex profileLevel(R"(profile-level-id=(\S+))");
    profile.clear();
    payloadType = 0;
    std::set<int> h264Types;
    std::map<int, std::string> parameters;
    for (const auto& line : splitLines(sdp)) {
        std::smatch match;
        if (std::regex_search(line, match, rtpmap)) {
            if (const int type = payloadTypeNumber(match[1]); type >= 0)
                h264Types.insert(type);
        } else if (std::regex_search(line, match, fmtp) && h264Types.count(payloadTypeNumber(match[1]))) {
            parameters[payloadTypeNumber(match[1])] = match[2];
        }
    }
    for (const auto& [type, fmtpParameters] : parameters) {
        std::smatch match;
        if (!std::regex_search(fmtpParameters, match, profileLevel))
            continue;
        auto id = H264ProfileLevelId::fromHexString(match[1]);
        if (id && id->profile == H264ProfileLevelId::ConstrainedBaseline) {
            payloadType = type;
            profile = fmtpParameters;
        }
    }
}

std::optional<std::string> VRQWebrtClient::seiDetection(const std::uint8_t* data, std::size_t length)
{
    if (!data || length == 0)
        return std::nullopt;
    const std::string text(reinterpret_cast<const char*>(data), length);
    if (text.find("rtt_detect") == std::string::npos)
        return std::nullopt;
    return withoutFirstThreeCharacters(text);
}

void VRQWebrtClient::onSEIData(const std::uint8_t* data, std::size_t length)
{
    auto detection = seiDetection(data, length);
    if (!detection)
        return;
    vrq::dispatchGlobalAsync([detection = std::move(*detection)] {
        VRQSDKMonitor::sharedInstance().updateTotalTrans(detection);
    });
}

void VRQWebrtClient::didReceiveSei(const std::uint8_t* data, std::size_t length)
{
    onSEIData(data, length);
}

void VRQWebrtClient::didAddStream(int videoTracks, int /*audioTracks*/)
{
    VRQ_LOG(0, "addStream %d", videoTracks);
}

void VRQWebrtClient::didChangeIceConnectionState(IceConnectionState state)
{
    VRQ_LOG(0, "didChangeIceConnectionState:%s", stringForState(state));
    if (state == IceConnectionState::Connected && delegate())
        delegate()->onPeerReady();
}

void VRQWebrtClient::didChangeConnectionState(PeerConnectionState state)
{
    VRQ_LOG(0, "didChangeConnectionState:%s", stringForState(state));
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    if (state == PeerConnectionState::Connected) {
        vrq::dispatchMainAsync([weak] {
            if (auto self = weak.lock())
                self->startHeartbeat();
        });
    } else if (state == PeerConnectionState::Disconnected || state == PeerConnectionState::Failed) {
        vrq::dispatchMainAsync([weak] {
            auto self = weak.lock();
            if (!self)
                return;
            self->stopHeartbeat();
            if (self->delegate())
                self->delegate()->onDisconnection();
        });
    }
}

void VRQWebrtClient::dataChannelDidChangeState(DataChannel& channel)
{
    const std::string label = channel.label();
    const auto stateAtEvent = static_cast<std::int32_t>(channel.readyState());
    VRQ_LOG(0, "dataChannel:%s state:%s", label.c_str(), stringForState(channel.readyState()));
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    vrq::dispatchGlobalAsync([weak, label, stateAtEvent] {
        auto self = weak.lock();
        if (!self)
            return;
        // The state is read when the call runs; a channel that opens before
        // createDataChannelWithLabel has listed it is not listed yet, and then
        // its state at the event is the one to give.
        if (auto handler = self->handlerFor(label))
            handler->dataChannelDidChangeState(self->listedChannelState(label).value_or(stateAtEvent), label);
    });
}

void VRQWebrtClient::dataChannelDidReceiveMessage(DataChannel& channel, const DataBuffer& buffer)
{
    const std::string label = channel.label();
    auto handler = handlerFor(label);
    if (!handler)
        return;
    if (!m_handlerBacklog->tryEnter())
        return;
    std::weak_ptr<VRQWebRTCDataHandler> weakHandler = handler;
    vrq::dispatchGlobalAsync([weakHandler, buffer, label, backlog = m_handlerBacklog] {
        const vrq::PendingLimit::Leave leave(*backlog);
        if (auto target = weakHandler.lock())
            target->onReceiveMsg(buffer, label);
    });
}

void VRQWebrtClient::videoViewDidChangeVideoSize(vrq::VideoView& /*view*/, vrq::Size size)
{
    VRQ_LOG(0, "didChangeVideoSize:%.0fx%.0f", size.width, size.height);
    vrq::Size oldSize;
    {
        std::lock_guard lock(m_mutex);
        oldSize = std::exchange(m_videoSize, size);
    }
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    vrq::dispatchMainAsync([weak, oldSize, size] {
        if (auto self = weak.lock(); self && self->delegate())
            self->delegate()->onRectChangeOldSize(oldSize, size);
    });
}

void VRQWebrtClient::videoViewIsFirstFrame(vrq::VideoView& /*view*/, bool isFirstFrame)
{
    VRQ_LOG(0, "videoView isFirstFrame:%d", isFirstFrame ? 1 : 0);
    if (!isFirstFrame)
        return;
    std::weak_ptr<VRQWebrtClient> weak = weak_from_this();
    vrq::dispatchMainAsync([weak] {
        if (auto self = weak.lock(); self && self->delegate())
            self->delegate()->onFirstFrameDraw();
    });
}
