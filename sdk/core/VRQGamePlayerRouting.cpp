// VRQGamePlayer: routing of the server's messages on the fixed channels, and
// custom transmission channels.
#include "vrq/core/VRQCustomTransChannel.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/core/VRQHostCall_p.h"
#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRedaction.h"

#include <charconv>

using nlohmann::json;

namespace {

// Labels of custom channels: custom_trans_1, custom_trans_2, ... for the process.
std::atomic<std::int32_t> gCustomDataInc{1};

// A disconnect code is a number or, unlike other members, a string that
// starts with a number (leading blanks and a sign allowed; the digits are
// read as far as they go). Anything else is no code.
std::optional<std::int64_t> disconnectCode(const json& message)
{
    const json& value = message.at("code");
    if (value.is_number())
        return vrq_longForKey(message, "code", 0);
    if (!value.is_string())
        return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    const char* begin = text.data();
    const char* end = text.data() + text.size();
    while (begin < end && (*begin == ' ' || *begin == '\t'))
        ++begin;
    if (begin < end && *begin == '+')
        ++begin;
    std::int64_t code = 0;
    if (std::from_chars(begin, end, code).ec != std::errc())
        return std::nullopt;
    return code;
}

std::optional<int> failureForDisconnectCode(std::int64_t code)
{
    switch (code) {
    case 0:
        return 10003;
    case 1:
        return 10004;
    case 2:
        return 10008;
    default:
        return std::nullopt;
    }
}

} // namespace

void VRQGamePlayer::onReceiveMsg(const vrq::rtc::DataBuffer& buffer, const std::string& label)
{
    const auto message = vrq_dictionaryWithJsonObject(std::string_view(buffer.data));
    if (!message || message->empty())
        return;
    if (label == "sv")
        onSvMessage(*message);
    else if (label == "hb")
        onHbMessage(*message);
    else if (label == "ack")
        onAckMessage(*message);
    else if (label == "km")
        onKmMessage(*message);
    else if (label == "cd")
        onCdMessage(*message);
}

void VRQGamePlayer::onHbMessage(const json& message)
{
    if (const auto found = message.find("code"); found != message.end() && !found->is_null()) {
        const auto code = disconnectCode(message);
        if (!code) {
            VRQ_LOG(2, "disconnect code is not a number:%s", vrq_jsonText(*found).c_str());
            return;
        }
        VRQ_LOG(3, "disconnect code:%d", static_cast<int>(*code));
        const auto failure = failureForDisconnectCode(*code);
        if (!failure)
            return;
        // The server ended the session. The connection stays up (the host is
        // expected to call stopGame), but the session's timers stop with it.
        postToMain([failure = *failure](VRQGamePlayer& self) {
            self.endSession({.failure = failure,
                             .message = std::nullopt,
                             .report = SessionEnd::Report::StopGame,
                             .reportCode = failure,
                             .closeConnection = false});
        });
        return;
    }
    if (message.contains("token")) {
        const std::int64_t timestamp = vrq_longForKey(message, "timestamp", 0);
        const std::string token = vrq_stringForKey(message, "token", std::string()).value_or("");
        const auto rtt = static_cast<std::int32_t>(vrq::nowMs() - timestamp);
        VRQ_LOG(0, "onHeartbeat rtt:%d token:%s", rtt, vrq_redacted(token).c_str());
        VRQSDKMonitor::sharedInstance().updateRTT(rtt);
        VRQSDKMonitor::sharedInstance().updateToken(token);
    }
}

void VRQGamePlayer::onAckMessage(const json& message)
{
    const json data = vrq_dictionaryForKey(message, "data", json::object());
    if (data.empty())
        return;
    const std::string type = vrq_stringForKey(data, "type", std::string()).value_or("");
    if (type == "mouseleft") {
        m_gameController->handleClickedTextFieldMsg(data);
        return;
    }
    if (type == "cursor_state") {
        m_gameController->handleMouseCursorStateMsg(data);
        return;
    }
    if (!type.empty() && callMessageHandle(type, data))
        return;
    const std::int64_t seq = vrq_longForKey(message, "seq", 0);
    // Taken out at once, so that a time-out racing this reply finds nothing.
    OnceCallback callback = takeOnceCallback(seq);
    if (!callback)
        return;
    vrq::dispatchMainAsync([callback = std::move(callback), data] {
        vrqCallHost("ack callback", [&] { callback(std::nullopt, data); });
    });
    vrq::dispatchGlobalAsync([weak = weak_from_this(), seq] {
        if (auto self = weak.lock())
            self->removeAckTimer(seq);
    });
}

void VRQGamePlayer::onKmMessage(const json& message)
{
    VRQSDKMonitor::sharedInstance().updateRemoteInfo(message);
}

void VRQGamePlayer::onCdMessage(const json& message)
{
    if (vrq_stringForKey(message, "data_type", std::string("mouse")) == "mouse")
        m_gameController->handleMouseCursorImageMsg(message);
}

void VRQGamePlayer::onSvMessage(const json& message)
{
    const std::string type = vrq_stringForKey(message, "type", std::string()).value_or("");
    const json data = vrq_dictionaryForKey(message, "data", json::object());
    if (type == "archive_load_status" || type == "archive_save_status") {
        const bool load = type == "archive_load_status";
        const std::int32_t status = vrq_intForKey(data, "status", 4);
        VRQ_LOG(1, "%s:%d", type.c_str(), status);
        deliverToMain([load, status, data](VRQGamePlayer& self) {
            auto target = self.archiveDelegate();
            if (!target)
                return;
            vrqCallHost("archive status", [&] {
                if (load)
                    target->onLoadStatusChanged(status, data);
                else
                    target->onSaveStatusChanged(status, data);
            });
        });
    } else if (type == "game_start_complete") {
        const std::int32_t status = vrq_intForKey(data, "status", 1);
        VRQ_LOG(1, "game_start_complete:%d", status);
        if (status == 0) {
            deliverToMain([](VRQGamePlayer& self) {
                if (auto target = self.delegate())
                    vrqCallHost("onGameProcessRun", [&] { target->onGameProcessRun(); });
            });
        }
    } else if (type == "auto_login") {
        m_gameController->handleAutoLoginStatusMsg(data);
    } else if (type == "client_input_status_changed") {
        m_gameController->handleRemoteInputStatusMsg(data);
    } else if (type == "metric_sig_key") {
        const std::string key = vrq_stringForKey(data, "sig_key", std::string()).value_or("");
        if (!key.empty())
            VRQHttpHelper::setMetricSigKey(key);
    } else if (type == "screen_config_change") {
        handleOrientationMessage(data);
    }
}

void VRQGamePlayer::handleOrientationMessage(const json& message)
{
    const std::string orientation = vrq_stringForKey(message, "orientation", std::string()).value_or("");
    if (orientation == "landscape")
        m_videoOrientation = 3;
    else if (orientation == "portrait")
        m_videoOrientation = 1;
    else
        return;
    deliverToMain([value = m_videoOrientation.load()](VRQGamePlayer& self) {
        if (auto target = self.delegate())
            vrqCallHost("onVideoOrientationChanged", [&] { target->onVideoOrientationChanged(value); });
    });
}

std::shared_ptr<VRQCustomTransChannel> VRQGamePlayer::openCustomTransChannel(
    std::int32_t remotePort, std::weak_ptr<VRQCustomTransChannelDelegate> delegate)
{
    if (remotePort < 1 || delegate.expired()) {
        VRQ_LOG_UPLOAD(1, "createCustomTransChannel parameter error");
        return nullptr;
    }
    const std::string label = "custom_trans_" + std::to_string(gCustomDataInc.fetch_add(1));
    VRQ_LOG_UPLOAD(1, "createCustomTransChannel remotePort:%d label:%s", remotePort, label.c_str());
    auto client = rtcClient();
    if (!client || !client->createDataChannelWithLabel(label)) {
        VRQ_LOG_UPLOAD(1, "createCustomTransChannel remotePort:%d label:%s failed.", remotePort, label.c_str());
        return nullptr;
    }
    return VRQCustomTransChannel::create(shared_from_this(), label, remotePort, std::move(delegate));
}
