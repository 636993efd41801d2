// VRQGamePlayer: the game operations a host asks for (experience codes,
// restart, pause and resume, bitrate, volume, the video view).
#include "vrq/core/VRQGamePlayer.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"

using nlohmann::json;

void VRQGamePlayer::startGameWithExperienceCode(const std::string& code, VRQError* error)
{
    const json params = {{"experience_code", code}};
    VRQHttpHelper::createExperienceSession(
        params, [weak = weak_from_this(), params, error](std::optional<VRQError> failure, std::string body) {
            auto self = weak.lock();
            if (!self)
                return;
            if (failure || body.empty()) {
                VRQ_LOG(3, "createExperienceSession failed, error:%s params:%s",
                        failure ? failure->toString().c_str() : "(null)", vrq_jsonText(params).c_str());
                return;
            }
            const json result = vrq_dictionaryWithJsonObject(body).value_or(json::object());
            if (vrq_intForKey(result, "Code", -1) != 0) {
                VRQ_LOG(3, "createExperienceSession failed, result:%s", vrq_jsonText(result).c_str());
                return;
            }
            const std::string session = vrq_stringForKey(result, "ServerSession", std::string()).value_or("");
            self->startGameWithRemoteSession(session, error);
        });
}

// Game-control envelopes carry the time as their sequence number: no reply is awaited.
void VRQGamePlayer::sendGameControl(const json& data)
{
    sendMessage({{"seq", vrq::nowMs()}, {"data", data}}, "ack");
}

void VRQGamePlayer::restartGame()
{
    VRQ_LOG(1, "restartGame");
    sendGameControl({{"type", "game_op"}, {"op", "restart"}});
}

void VRQGamePlayer::pauseResumeGame(bool pause)
{
    VRQ_LOG(1, "pauseResumeGame:%d", pause ? 1 : 0);
    const auto status = gameStatus();
    if (status == VRQGameStatusStopped) {
        if (!pause)
            reconnectRemote();
        return;
    }
    if (status != VRQGameStatusPlaying) {
        VRQ_LOG(2, "status error:%zd", static_cast<std::ptrdiff_t>(status));
        return;
    }
    sendGameControl({{"type", "game_op"}, {"op", pause ? "pause" : "resume"}});
    if (pause) {
        stopCheckFPS();
        m_isPaused = true;
    } else {
        startCheckFPS();
        m_isPaused = false;
    }
}

void VRQGamePlayer::setStreamBitrateMix(std::uint32_t minKbps, std::uint32_t maxKbps, std::int32_t fps)
{
    VRQ_LOG(1, "setStreamBitrateMin:%dKbps, max:%dKbps, fps:%dfps", static_cast<int>(minKbps),
            static_cast<int>(maxKbps), fps);
    // Sent as given: the server decides what it can do.
    sendGameControl({{"type", "res_mode"}, {"min_bitrate", minKbps}, {"max_bitrate", maxKbps}, {"fps", fps},
                     {"unit", "Kbps"}});
}

void VRQGamePlayer::setVolumeScale(float scale)
{
    VRQ_LOG_UPLOAD(1, "setVolumeScale %.2f", static_cast<double>(scale));
    if (auto client = rtcClient())
        client->setVolume(scale);
}

std::shared_ptr<VRQGameVideoView> VRQGamePlayer::videoView() const
{
    auto client = rtcClient();
    return client ? client->playView() : nullptr;
}

double VRQGamePlayer::videoViewScale() const
{
    const auto view = videoView();
    return view ? view->scaleValue() : 0.0;
}

void VRQGamePlayer::setVideoViewEnablePinch(bool enable)
{
    VRQ_LOG_UPLOAD(1, "setEnablePinch:%d", enable ? 1 : 0);
    if (auto view = videoView())
        view->setEnablePinch(enable);
}

void VRQGamePlayer::resetVideoViewFrame()
{
    if (auto view = videoView())
        view->resetVideoViewFrame();
}

void VRQGamePlayer::setVideoViewInsets(vrq::EdgeInsets insets)
{
    VRQ_LOG_UPLOAD(1, "setVideoViewMoveInsets:%s", vrq::stringFromEdgeInsets(insets).c_str());
    if (auto view = videoView())
        view->setMoveInsets(insets);
}

