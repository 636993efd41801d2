#include "vrq/core/VRQGamePlayer.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGameMessageHandler.h"
#include "vrq/core/VRQHostCall_p.h"
#include "vrq/log/VRQLog.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/PendingLimit.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/NotificationCenter.h"
#include "vrq/platform/services/UserDefaults.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRedaction.h"
#include "vrq/utils/VRQReachability.h"
#include "vrq/utils/VRQRemoteSession.h"
#include "vrq/utils/VRQSDKVersion.h"

#include <cxxabi.h>

#include <cmath>
#include <set>
#include <typeinfo>

using nlohmann::json;

namespace {

constexpr const char* kCrashReporterInfosKey = "PlenkSDKInfos";
constexpr const char* kCrashReporterAppId = "4be21f7a0d";
constexpr double kFpsEpsilon = 0.0001;
constexpr int kNoVideoChecksBeforeReconnect = 5;
constexpr auto kAckTimeoutLeeway = std::chrono::milliseconds(500);

// One sequence for the acknowledged messages of every player in the process.
std::atomic<std::int32_t> kAckMessageId{10000};

// Input types that travel on "ack" (with a timestamp as their sequence number).
const std::set<std::string, std::less<>>& gAckMessageType()
{
    static const std::set<std::string, std::less<>> types = {"cursor_state",   "mouseleft", "keys_clean",
                                                             "set_cursor",     "capslock_state", "wnd_pos"};
    return types;
}

// A delay in seconds as the timers take it. Infinite or enormous delays mean
// "never" (the timers hold them at the end of time); NaN and negatives "now".
std::chrono::milliseconds secondsToMs(double seconds)
{
    if (!(seconds > 0))
        return std::chrono::milliseconds(0);
    const double ms = seconds * 1000.0;
    if (ms >= static_cast<double>(std::chrono::milliseconds::max().count()))
        return std::chrono::milliseconds::max();
    return std::chrono::milliseconds(std::llround(ms));
}

VRQError sdkError(int code)
{
    return VRQError{VRQGamePlayer::kErrorDomain, code, {}, {}};
}

std::string className(const VRQGameMessageHandler& handler)
{
    int status = 0;
    char* name = abi::__cxa_demangle(typeid(handler).name(), nullptr, nullptr, &status);
    std::string result = status == 0 && name ? name : typeid(handler).name();
    std::free(name);
    return result;
}

} // namespace

std::shared_ptr<VRQGamePlayer> VRQGamePlayer::create(const json& params, std::weak_ptr<VRQGamePlayerDelegate> delegate,
                                                     RtcClientFactory makeClient)
{
    initialize();
    std::shared_ptr<VRQGamePlayer> player(new VRQGamePlayer(std::move(delegate)));
    player->setUp(params, makeClient);
    return player;
}

void VRQGamePlayer::initialize()
{
    static std::once_flag once;
    std::call_once(once, [] {
        gAckMessageType();
        const auto folder = vrq::documentsDirectory() / "vrq_logs";
        VRQLogManager::sharedManager().initSDK(folder.string(), VRQLogManager::kLogFileSize, 2);
        // The host's crash reporter lists the versions of the SDKs it finds here.
        auto& defaults = vrq::UserDefaults::standard();
        json infos = json::object();
        if (const auto stored = defaults.objectForKey(kCrashReporterInfosKey); stored && stored->is_object())
            infos = *stored;
        infos[kCrashReporterAppId] = VRQSDKVersion;
        defaults.setObject(infos, kCrashReporterInfosKey);
    });
}

void VRQGamePlayer::prepare()
{
    VRQWebrtClient::prepare();
}

void VRQGamePlayer::setLogger(VRQLogDelegate* logger, int minLevel)
{
    VRQLogManager::sharedManager().setLogDelegate(logger, minLevel);
}

VRQGamePlayer::VRQGamePlayer(std::weak_ptr<VRQGamePlayerDelegate> delegate)
    : m_delegate(std::move(delegate))
    , m_serverDeliveries(vrq::PendingLimit::make("server events for the host", vrq::PendingLimit::kMainDeliveries))
{
}

void VRQGamePlayer::setUp(const json& params, const RtcClientFactory& makeClient)
{
    m_gameController = std::make_shared<VRQGameController>();
    m_gameController->setWeakPlayer(weak_from_this());
    std::weak_ptr<VRQGamePlayer> weak = weak_from_this();
    m_networkObserver = vrq::NotificationCenter::defaultCenter().addObserver(
        kVRQReachabilityChangedNotification, [weak](const vrq::Notification&) {
            if (auto self = weak.lock())
                self->onNetworkStatusChanged();
        });
    auto client = makeClient ? makeClient(params, this) : VRQWebrtClient::create(params, this);
    setRtcClient(client);
    registerFixedHandlers();
}

// The player handles the fixed labels of every connection. Closing the client
// drops its handlers, so a session revived afterwards registers them again.
void VRQGamePlayer::registerFixedHandlers()
{
    if (auto client = rtcClient())
        for (const char* label : {"hb", "cd", "km", "sv", "ack"})
            client->registDataChannelHandler(weak_from_this(), label);
}

VRQGamePlayer::~VRQGamePlayer()
{
    vrq::NotificationCenter::defaultCenter().removeObserver(m_networkObserver);
    {
        std::lock_guard lock(m_ackMutex);
        m_onceAckHandleMap.clear();
        for (auto& [seq, timer] : m_onceAckTimeoutMap)
            timer->cancel();
        m_onceAckTimeoutMap.clear();
    }
    stopGame();
    if (auto client = rtcClient())
        client->setDelegate(nullptr);
}

// MARK: - Accessors

std::shared_ptr<VRQGamePlayerDelegate> VRQGamePlayer::delegate() const
{
    std::lock_guard lock(m_mutex);
    return m_delegate.lock();
}

void VRQGamePlayer::setDelegate(std::weak_ptr<VRQGamePlayerDelegate> delegate)
{
    std::lock_guard lock(m_mutex);
    m_delegate = std::move(delegate);
}

std::shared_ptr<VRQGameArchiveDelegate> VRQGamePlayer::archiveDelegate() const
{
    std::lock_guard lock(m_mutex);
    return m_archiveDelegate.lock();
}

void VRQGamePlayer::setArchiveDelegate(std::weak_ptr<VRQGameArchiveDelegate> delegate)
{
    std::lock_guard lock(m_mutex);
    m_archiveDelegate = std::move(delegate);
}

std::shared_ptr<VRQWebrtClient> VRQGamePlayer::rtcClient() const
{
    std::lock_guard lock(m_mutex);
    return m_rtcClient;
}

void VRQGamePlayer::setRtcClient(std::shared_ptr<VRQWebrtClient> client)
{
    std::lock_guard lock(m_mutex);
    m_rtcClient = std::move(client);
}

void VRQGamePlayer::postToMain(std::function<void(VRQGamePlayer&)> fn)
{
    vrq::dispatchMainAsync([weak = weak_from_this(), fn = std::move(fn)] {
        if (auto self = weak.lock())
            fn(*self);
    });
}

void VRQGamePlayer::deliverToMain(std::function<void(VRQGamePlayer&)> fn)
{
    if (!m_serverDeliveries->tryEnter())
        return;
    vrq::dispatchMainAsync([weak = weak_from_this(), fn = std::move(fn), deliveries = m_serverDeliveries] {
        const vrq::PendingLimit::Leave leave(*deliveries);
        if (auto self = weak.lock())
            fn(*self);
    });
}

// MARK: - Lifecycle

bool VRQGamePlayer::startGameWithRemoteSession(const std::string& remoteSession, VRQError* error)
{
    vrq::assertMainThread();
    const auto status = gameStatus();
    if (status != VRQGameStatusInited && status != VRQGameStatusReconnecting) {
        VRQ_LOG_UPLOAD(3, "start not inited.");
        return false;
    }
    const auto decoded = vrq::base64Decode(remoteSession);
    const auto session = decoded ? vrq_dictionaryWithJsonObject(*decoded) : std::nullopt;
    VRQ_LOG_UPLOAD(1, "start version:%s commit_id:%s", VRQSDKVersion, vrqCommitId());
    if (auto client = rtcClient())
        VRQ_LOG_UPLOAD(1, "start video decoder:%s", client->videoDecoderName().c_str());
    if (!session || session->empty()) {
        VRQ_LOG(3, "start parse sdp answer error %s", vrq_redactedText(decoded ? *decoded : remoteSession).c_str());
        return false;
    }
    const auto remote = VRQRemoteSession::fromDictionary(*session);
    if (remote.code != 0) {
        if (error)
            *error = sdkError(remote.code);
        VRQ_LOG(3, "start sdp answer error %s", vrq_redactedText(vrq_jsonText(*session)).c_str());
        return false;
    }
    if (!remote.metricKey.empty())
        VRQHttpHelper::setMetricSigKey(remote.metricKey);
    return play(remote);
}

bool VRQGamePlayer::playGameWithRemoteSdp(const json& remoteSession)
{
    return play(VRQRemoteSession::fromDictionary(remoteSession));
}

bool VRQGamePlayer::play(const VRQRemoteSession& remoteSession)
{
    VRQ_LOG(1, "playGameWithRemoteSdp:%s", vrq_redactedText(vrq_jsonText(remoteSession.dictionary)).c_str());
    VRQSDKMonitor::sharedInstance().resetWithSession(remoteSession);
    const std::string& sdp = remoteSession.sdp;
    if (sdp.empty()) {
        VRQ_LOG_UPLOAD(3, "playGameWithRemoteSdp remoteSdp.length == 0");
        return false;
    }
    const auto view = videoView();
    if (!view || view->vrq_w() == 0 || view->vrq_h() == 0) {
        VRQ_LOG_UPLOAD(3, "playGameWithRemoteSdp self.videoView.size == 0");
        return false;
    }
    m_oldNetworkStatus = VRQReachability::sharedInstance().currentReachabilityStatus();
    if (auto client = rtcClient())
        client->setRemoteSdp(sdp);
    if (!remoteSession.screenConfig.empty())
        handleOrientationMessage(remoteSession.screenConfig);
    scheduleConnectTimeout();
    return true;
}

void VRQGamePlayer::stopGame()
{
    VRQ_LOG_UPLOAD(1, "stopGame");
    // Only a session under way is reported as stopped by the app.
    const auto status = gameStatus();
    const bool running = status != VRQGameStatusNone && status != VRQGameStatusStopped;
    endSession({.failure = std::nullopt,
                .message = std::nullopt,
                .report = running ? SessionEnd::Report::StopGame : SessionEnd::Report::None,
                .reportCode = 19000,
                .closeConnection = true});
}

// The one way a session ends, whatever ended it: every timer the session
// armed stops (the connect timeout, the FPS check) and a reconnect that waits
// for its answer is abandoned, before the status becomes 5 and the host and
// the monitor hear of it.
void VRQGamePlayer::endSession(const SessionEnd& end)
{
    stopCheckFPS();
    cancelConnectTimeout();
    m_awaitingReconnectAnswer = false;
    if (end.closeConnection)
        if (auto client = rtcClient())
            client->close();
    setGameStatus(VRQGameStatusStopped);
    if (end.failure)
        if (auto target = delegate())
            vrqCallHost("onConnectionFailure", [&] { target->onConnectionFailure(*end.failure, end.message); });
    auto& monitor = VRQSDKMonitor::sharedInstance();
    switch (end.report) {
    case SessionEnd::Report::None:
        break;
    case SessionEnd::Report::StopGame:
        monitor.onStopGame(end.reportCode);
        break;
    case SessionEnd::Report::Disconnect:
        monitor.onDisconnectWithError(end.reportCode);
        break;
    case SessionEnd::Report::RemoteSdpError:
        monitor.onSetRemoteSdpError(end.reportCode);
        break;
    }
}

void VRQGamePlayer::setConnectTimeout(double seconds)
{
    VRQ_LOG(1, "setConnectTime %f", seconds);
    m_connectTimeout = seconds;
}

json VRQGamePlayer::currentStatisReport() const
{
    return VRQSDKMonitor::sharedInstance().currentReport();
}

void VRQGamePlayer::scheduleConnectTimeout()
{
    cancelConnectTimeout();
    m_connectTimeoutTimer = vrq::Timer::onMain(secondsToMs(m_connectTimeout.load()), false, [weak = weak_from_this()] {
        if (auto self = weak.lock())
            self->onConnectTimeout();
    });
}

void VRQGamePlayer::cancelConnectTimeout()
{
    if (m_connectTimeoutTimer) {
        m_connectTimeoutTimer->cancel();
        m_connectTimeoutTimer.reset();
    }
}

void VRQGamePlayer::onConnectTimeout()
{
    endSession({.failure = 10009,
                .message = std::nullopt,
                .report = SessionEnd::Report::StopGame,
                .reportCode = 10009,
                .closeConnection = true});
    const auto view = videoView();
    VRQ_LOG(2, "onConnectTimeout videoFrame:%s", vrq::stringFromRect(view ? view->frame() : vrq::Rect{}).c_str());
}

void VRQGamePlayer::startCheckFPS()
{
    stopCheckFPS();
    m_noVideoFrameDuration = 0;
    m_checkFpsTimer = vrq::Timer::onMain(std::chrono::seconds(1), true, [weak = weak_from_this()] {
        if (auto self = weak.lock())
            self->doCheckFPS();
    });
}

void VRQGamePlayer::stopCheckFPS()
{
    if (m_checkFpsTimer) {
        m_checkFpsTimer->cancel();
        m_checkFpsTimer.reset();
    }
}

void VRQGamePlayer::doCheckFPS()
{
    const float fps = VRQSDKMonitor::sharedInstance().currentSDKReport().fps();
    if (fps > kFpsEpsilon)
        m_noVideoFrameDuration = 0;
    else
        ++m_noVideoFrameDuration;
    // The counter is left as it is: doReConnect stops this timer, and the next
    // first frame starts a fresh one. Without a reconnect left nothing happens.
    if (m_noVideoFrameDuration >= kNoVideoChecksBeforeReconnect && canTryReConnect()) {
        doReConnect();
        if (auto target = delegate())
            vrqCallHost("onStartReConnectWithReason", [&] { target->onStartReConnectWithReason(10020); });
        VRQSDKMonitor::sharedInstance().onStartReconnect(10020);
    }
}

// The connection is lost for good: the host and the monitor hear of it.
void VRQGamePlayer::failSession(int code)
{
    endSession({.failure = code,
                .message = std::nullopt,
                .report = SessionEnd::Report::Disconnect,
                .reportCode = code,
                .closeConnection = false});
}

// MARK: - RTC client events

// The description callbacks arrive on the engine's thread: each hops to the
// main thread once, where the session's state lives.
void VRQGamePlayer::onSetLocalDescriptionSuccess()
{
    VRQ_LOG(1, "onSetLocalDescriptionSuccess");
    auto client = rtcClient();
    const json clientSession = client ? client->getClientSession() : json::object();
    postToMain([clientSession](VRQGamePlayer& self) {
        if (self.gameStatus() == VRQGameStatusNone)
            self.setGameStatus(VRQGameStatusInited);
        const auto status = self.gameStatus();
        if (status == VRQGameStatusInited) {
            const std::string text = vrq_stringWithJsonDic(clientSession).value_or("");
            if (auto target = self.delegate())
                vrqCallHost("onInitSuccess", [&] { target->onInitSuccess(text); });
        } else if (status == VRQGameStatusReconnecting) {
            self.requestNewRemoteSDP(vrq_toJsonData(clientSession).value_or(""));
        }
    });
}

void VRQGamePlayer::onSetLocalDescriptionFailure(const VRQError& error)
{
    VRQ_LOG(3, "onSetLocalDescriptionFailure:%s", error.toString().c_str());
    postToMain([error](VRQGamePlayer& self) {
        if (auto target = self.delegate())
            vrqCallHost("onInitFailure", [&] { target->onInitFailure(10001, error); });
        self.setGameStatus(VRQGameStatusNone);
        VRQSDKMonitor::sharedInstance().onSetLocalSdpError(error.code);
    });
}

void VRQGamePlayer::onSetRemoteDescriptionFailed(const VRQError& error)
{
    VRQ_LOG(3, "onSetRemoteDescriptionFailed:%s", error.toString().c_str());
    postToMain([error](VRQGamePlayer& self) {
        self.endSession({.failure = 10000,
                         .message = error,
                         .report = SessionEnd::Report::RemoteSdpError,
                         .reportCode = error.code,
                         .closeConnection = false});
    });
}

void VRQGamePlayer::onPeerReady()
{
    VRQ_LOG(1, "onPeerReady");
    VRQSDKMonitor::sharedInstance().onConnectSuccess();
}

void VRQGamePlayer::onPeerConnected()
{
    VRQ_LOG(1, "webrtc pc connected");
}

void VRQGamePlayer::onFirstFrameDraw()
{
    VRQ_LOG(1, "onFirstFrameDraw");
    setGameStatus(VRQGameStatusPlaying);
    // Every connection that shows video earns a fresh reconnect budget.
    m_tryConnectTime = 3;
    startCheckFPS();
    if (auto target = delegate())
        vrqCallHost("onVideoShow", [&] { target->onVideoShow(); });
    VRQSDKMonitor::sharedInstance().onFirstFrameDraw();
    cancelConnectTimeout();
}

void VRQGamePlayer::onRectChangeOldSize(vrq::Size /*oldSize*/, vrq::Size newSize)
{
    VRQ_LOG(1, "onRectChangeOldSize:%s", vrq::stringFromSize(newSize).c_str());
    if (auto target = delegate())
        vrqCallHost("onVideoSizeChanged", [&] { target->onVideoSizeChanged(newSize); });
    VRQSDKMonitor::sharedInstance().onVideoSizeChanged(newSize);
}

void VRQGamePlayer::onDisconnection()
{
    VRQ_LOG(1, "onDisconnection");
    stopCheckFPS();
    cancelConnectTimeout();
    if (canTryReConnect()) {
        doReConnect();
        if (auto target = delegate())
            vrqCallHost("onStartReConnectWithReason", [&] { target->onStartReConnectWithReason(10002); });
        VRQSDKMonitor::sharedInstance().onStartReconnect(10002);
    } else {
        failSession(10002);
    }
}

// MARK: - Sending

void VRQGamePlayer::sendMessage(const json& message, const std::string& label)
{
    auto client = rtcClient();
    const auto data = vrq_toJsonData(message);
    if (client && data)
        client->sendRawData(*data, label);
}

bool VRQGamePlayer::sendCustomData(const std::string& data, const std::string& label)
{
    auto client = rtcClient();
    return client && client->sendRawData(data, label, true);
}

void VRQGamePlayer::sendKeycodeMessage(const json& message)
{
    const std::string type = vrq_stringForKey(message, "type", std::string()).value_or("");
    if (gAckMessageType().contains(type))
        sendMessage({{"seq", vrq::nowMs()}, {"data", message}}, "ack");
    else
        sendMessage(message, "km");
}

void VRQGamePlayer::sendAckMessage(const json& message, OnceCallback onceCallback)
{
    const std::int64_t seq = kAckMessageId.fetch_add(1);
    const json envelope = {{"seq", seq}, {"data", message}};
    if (onceCallback) {
        const auto interval = secondsToMs(m_connectTimeout.load());
        std::lock_guard lock(m_ackMutex);
        m_onceAckHandleMap[seq] = std::move(onceCallback);
        m_onceAckTimeoutMap[seq] = vrq::Timer::onGlobal(
            interval, true,
            [weak = weak_from_this(), seq] {
                if (auto self = weak.lock())
                    self->onAckTimeout(seq);
            },
            kAckTimeoutLeeway);
    }
    sendMessage(envelope, "ack");
}

// Whoever takes a pending callback out first delivers it: the reply or the time-out.
VRQGamePlayer::OnceCallback VRQGamePlayer::takeOnceCallback(std::int64_t seq)
{
    std::lock_guard lock(m_ackMutex);
    const auto pending = m_onceAckHandleMap.find(seq);
    if (pending == m_onceAckHandleMap.end())
        return nullptr;
    OnceCallback callback = std::move(pending->second);
    m_onceAckHandleMap.erase(pending);
    return callback;
}

void VRQGamePlayer::removeAckTimer(std::int64_t seq)
{
    std::shared_ptr<vrq::Timer> timer;
    {
        std::lock_guard lock(m_ackMutex);
        const auto found = m_onceAckTimeoutMap.find(seq);
        if (found == m_onceAckTimeoutMap.end())
            return;
        timer = std::move(found->second);
        m_onceAckTimeoutMap.erase(found);
    }
    timer->cancel();
}

void VRQGamePlayer::onAckTimeout(std::int64_t seq)
{
    OnceCallback callback = takeOnceCallback(seq);
    if (!callback)
        return;
    removeAckTimer(seq);
    vrqCallHost("ack callback", [&] { callback(sdkError(10021), json()); });
}

// MARK: - Message handlers

void VRQGamePlayer::registerMessageHandler(VRQGameMessageHandler* handler, const std::string& type)
{
    VRQ_LOG(1, "%s handler type:%s", handler ? className(*handler).c_str() : "(null)", type.c_str());
    if (type.empty())
        return;
    std::lock_guard lock(m_mutex);
    m_messageHandler.vrq_setWeakObject(handler, type);
}

void VRQGamePlayer::removeMessageHandler(VRQGameMessageHandler* handler, const std::string& type)
{
    VRQ_LOG(1, "remove %s handler type:%s", handler ? className(*handler).c_str() : "(null)", type.c_str());
    if (type.empty())
        return;
    std::lock_guard lock(m_mutex);
    if (m_messageHandler.vrq_weakObjectForKey(type) == handler)
        m_messageHandler.removeObjectForKey(type);
}

bool VRQGamePlayer::callMessageHandle(const std::string& type, const json& message)
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_messageHandler.vrq_weakObjectForKey(type))
            return false;
    }
    // Looked up again on the main thread: a handler removed in between is not called.
    postToMain([type, message](VRQGamePlayer& self) {
        VRQGameMessageHandler* handler = nullptr;
        {
            std::lock_guard lock(self.m_mutex);
            handler = self.m_messageHandler.vrq_weakObjectForKey(type);
        }
        if (!handler)
            return;
        VRQ_LOG(1, "callMessageHandle type %s", type.c_str());
        vrqCallHost("handleMessageType", [&] { handler->handleMessageType(type, message); });
    });
    return true;
}

// MARK: - Data channels

std::int32_t VRQGamePlayer::getDataChannelState(const std::string& label) const
{
    auto client = rtcClient();
    return client ? client->getDataChannelState(label) : 3;
}

void VRQGamePlayer::closeDataChannelWithLabel(const std::string& label)
{
    if (auto client = rtcClient())
        client->closeDataChannelWithLabel(label);
}

void VRQGamePlayer::registDataChannelHandler(std::weak_ptr<VRQWebRTCDataHandler> handler, const std::string& label)
{
    if (auto client = rtcClient())
        client->registDataChannelHandler(std::move(handler), label);
}

void VRQGamePlayer::unRegistDataChannelHandler(const std::weak_ptr<VRQWebRTCDataHandler>& handler,
                                               const std::string& label)
{
    if (auto client = rtcClient())
        client->unRegistDataChannelHandler(handler, label);
}

void VRQGamePlayer::dataChannelDidChangeState(std::int32_t /*state*/, const std::string& /*label*/) {}
