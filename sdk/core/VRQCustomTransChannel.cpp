#include "vrq/core/VRQCustomTransChannel.h"

#include "vrq/core/VRQGamePlayer.h"
#include "vrq/core/VRQHostCall_p.h"
#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/PendingLimit.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/utils/VRQJsonHelpers.h"

using nlohmann::json;

namespace {

constexpr std::int32_t kChannelOpen = 1;
// A channel that is already open asks for its binding a moment later, once
// the server has seen the channel too.
constexpr auto kStartConnectDelay = std::chrono::milliseconds(200);

} // namespace

std::shared_ptr<VRQCustomTransChannel> VRQCustomTransChannel::create(
    const std::shared_ptr<VRQGamePlayer>& player, const std::string& label, std::int32_t port,
    std::weak_ptr<VRQCustomTransChannelDelegate> delegate)
{
    std::shared_ptr<VRQCustomTransChannel> channel(new VRQCustomTransChannel(label, port, std::move(delegate)));
    channel->setWeakPlayer(player);
    player->registDataChannelHandler(channel, label);
    if (player->getDataChannelState(label) == kChannelOpen) {
        // One-shot timers release themselves once they have fired.
        auto timer = vrq::Timer::onGlobal(kStartConnectDelay, false, [weak = channel->weak_from_this()] {
            if (auto self = weak.lock())
                self->startConnect();
        });
        std::lock_guard lock(channel->m_mutex);
        channel->m_startTimer = std::move(timer);
    }
    return channel;
}

VRQCustomTransChannel::VRQCustomTransChannel(std::string label, std::int32_t port,
                                             std::weak_ptr<VRQCustomTransChannelDelegate> delegate)
    : m_remoteUdpPort(port)
    , m_channelLabel(std::move(label))
    , m_delegate(std::move(delegate))
    , m_received(vrq::PendingLimit::make("custom channel \"" + m_channelLabel + "\" data for the host", vrq::PendingLimit::kMainDeliveries))
{
}

VRQCustomTransChannel::~VRQCustomTransChannel()
{
    if (auto player = weakPlayer())
        player->unRegistDataChannelHandler(weak_from_this(), m_channelLabel);
}

void VRQCustomTransChannel::close()
{
    if (auto player = weakPlayer())
        player->unRegistDataChannelHandler(weak_from_this(), m_channelLabel);
}

std::shared_ptr<VRQCustomTransChannelDelegate> VRQCustomTransChannel::delegate() const
{
    std::lock_guard lock(m_mutex);
    return m_delegate.lock();
}

void VRQCustomTransChannel::setDelegate(std::weak_ptr<VRQCustomTransChannelDelegate> delegate)
{
    std::lock_guard lock(m_mutex);
    m_delegate = std::move(delegate);
}

std::shared_ptr<VRQGamePlayer> VRQCustomTransChannel::weakPlayer() const
{
    std::lock_guard lock(m_mutex);
    return m_weakPlayer.lock();
}

void VRQCustomTransChannel::setWeakPlayer(std::weak_ptr<VRQGamePlayer> player)
{
    std::lock_guard lock(m_mutex);
    m_weakPlayer = std::move(player);
}

std::int32_t VRQCustomTransChannel::sendData(const std::string& data)
{
    if (data.size() > kTransCustomDataMaxLength)
        return -1;
    auto player = weakPlayer();
    if (!player || !player->sendCustomData(data, m_channelLabel)) {
        VRQ_LOG(0, "sendData failed. label:%s", m_channelLabel.c_str());
        return -2;
    }
    return 0;
}

void VRQCustomTransChannel::dataChannelDidChangeState(std::int32_t state, const std::string& label)
{
    VRQ_LOG_UPLOAD(1, "custom data:%s, state:%d", label.c_str(), state);
    if (state == kChannelOpen)
        startConnect();
}

void VRQCustomTransChannel::onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& /*label*/)
{
    if (!m_received->tryEnter())
        return;
    vrq::dispatchMainAsync([weak = weak_from_this(), data = buffer.data, received = m_received] {
        const vrq::PendingLimit::Leave leave(*received);
        auto self = weak.lock();
        auto target = self ? self->delegate() : nullptr;
        if (target)
            vrqCallHost("onReceiveData", [&] { target->onReceiveData(data, self->m_remoteUdpPort); });
    });
}

void VRQCustomTransChannel::startConnect()
{
    const json request = {{"type", "udp_trans"}, {"dest_port", m_remoteUdpPort}, {"label", m_channelLabel}};
    VRQ_LOG(1, "custom trans channel:[%s] start conn remote port:%d", m_channelLabel.c_str(), m_remoteUdpPort);
    auto player = weakPlayer();
    if (!player)
        return;
    player->sendAckMessage(request, [weak = weak_from_this()](std::optional<VRQError> error, json data) {
        auto self = weak.lock();
        if (!self || !self->delegate())
            return;
        vrq::dispatchMainAsync([weak, error, data] {
            if (auto channel = weak.lock())
                channel->onBindReply(error, data);
        });
    });
}

void VRQCustomTransChannel::onBindReply(const std::optional<VRQError>& error, const json& data)
{
    auto target = delegate();
    if (!target)
        return;
    if (error) {
        vrqCallHost("onConnFailed", [&] { target->onConnFailed(*error, m_remoteUdpPort); });
        return;
    }
    const std::string label = vrq_stringForKey(data, "label", std::string()).value_or("");
    if (label != m_channelLabel) {
        // A reply that does not name this channel (or names none) cannot bind
        // it: the binding failed. Reported, not asserted, so that no server
        // can stop the host, and so that the host is not left waiting.
        VRQ_LOG(3, "ack label:%s channel:%s", label.c_str(), m_channelLabel.c_str());
        const VRQError failure{VRQGamePlayer::kErrorDomain, kLabelMismatch, "ack label:" + label + " channel:" + m_channelLabel, {}};
        vrqCallHost("onConnFailed", [&] { target->onConnFailed(failure, m_remoteUdpPort); });
        return;
    }
    const std::int32_t code = vrq_intForKey(data, "code", -2);
    if (code != 0) {
        const VRQError failure{VRQGamePlayer::kErrorDomain, code, {}, {}};
        vrqCallHost("onConnFailed", [&] { target->onConnFailed(failure, m_remoteUdpPort); });
        return;
    }
    if (m_isConnected.exchange(true))
        return;
    VRQ_LOG(1, "custom trans channel:[%s] remote port:%d conn success", m_channelLabel.c_str(), m_remoteUdpPort);
    vrqCallHost("onConnSuccessAtRemotePort", [&] { target->onConnSuccessAtRemotePort(m_remoteUdpPort); });
}
