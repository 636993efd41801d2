// VRQGamePlayer: reconnection after a lost peer, frozen video, the network's
// return or the host's request.
#include "vrq/core/VRQGamePlayer.h"

#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRedaction.h"
#include "vrq/utils/VRQReachability.h"
#include "vrq/utils/VRQRemoteSession.h"

#include <utility>

using nlohmann::json;

bool VRQGamePlayer::canTryReConnect() const
{
    return !m_isPaused && m_tryConnectTime > 0;
}

void VRQGamePlayer::doReConnect()
{
    vrq::assertMainThread();
    --m_tryConnectTime;
    m_isPaused = false;
    VRQ_LOG(1, "do reConnect time:%d", m_tryConnectTime);
    setGameStatus(VRQGameStatusReconnecting);
    stopCheckFPS();
    m_awaitingReconnectAnswer = false;
    registerFixedHandlers();
    if (auto client = rtcClient())
        client->reConnect();
    scheduleConnectTimeout();
}

void VRQGamePlayer::reconnectRemote()
{
    VRQ_LOG(1, "start reconnectRemote");
    m_tryConnectTime = 3;
    doReConnect();
    VRQSDKMonitor::sharedInstance().onStartReconnect(19001);
}

void VRQGamePlayer::requestNewRemoteSDP(const std::string& localSdp)
{
    VRQ_LOG(1, "start requestNewRemoteSDP");
    m_awaitingReconnectAnswer = true;
    const auto& report = VRQSDKMonitor::sharedInstance().currentSDKReport();
    VRQHttpHelper::requestNewRemoteSdpAtServerIp(
        report.serverIP(), report.token(), report.userID(), localSdp,
        [weak = weak_from_this(), offer = localSdp](std::optional<VRQError>, std::string body) {
            auto self = weak.lock();
            if (!self)
                return;
            // Every attempt makes an offer of its own. An answer that comes back
            // after a later attempt has sent its offer answers one the client no
            // longer holds: played, it would take the place of the right answer.
            const auto client = self->rtcClient();
            if (!client || vrq_toJsonData(client->getClientSession()).value_or("") != offer)
                return;
            self->onReconnectAnswer(body);
        });
}

void VRQGamePlayer::onReconnectAnswer(const std::string& body)
{
    // An answer for a session that has ended since (or moved on) is dropped.
    if (!std::exchange(m_awaitingReconnectAnswer, false) || gameStatus() != VRQGameStatusReconnecting)
        return;
    const auto answer = VRQRemoteSession::fromJsonText(body);
    if (answer.sdp.empty()) {
        // With the network down, wait: its return retries, or the connect timeout ends the session.
        if (VRQReachability::sharedInstance().currentReachabilityStatus() == VRQNotReachable)
            return;
        VRQ_LOG(3, "result has no sdp %s", vrq_redactedText(body).c_str());
        failSession(10002);
        return;
    }
    if (!play(answer))
        failSession(10002);
}

void VRQGamePlayer::onNetworkStatusChanged()
{
    const std::int64_t status = VRQReachability::sharedInstance().currentReachabilityStatus();
    VRQ_LOG(1, "onNetworkStatusChanged:%zu", static_cast<std::size_t>(status));
    if (gameStatus() == VRQGameStatusReconnecting && m_oldNetworkStatus == VRQNotReachable && status != VRQNotReachable
        && canTryReConnect())
        doReConnect();
    VRQSDKMonitor::sharedInstance().onNetworkChanged(status);
    m_oldNetworkStatus = status;
}

