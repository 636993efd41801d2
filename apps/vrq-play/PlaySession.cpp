#include "PlaySession.h"

#include "EventLog.h"
#include "PlayWindow.h"
#include "SessionStatistics.h"

#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/utils/VRQJsonHelpers.h"

namespace {

std::string shortened(const std::string& text)
{
    constexpr std::size_t kLimit = 120;
    return text.size() <= kLimit ? text : text.substr(0, kLimit) + "...";
}

vrq::HttpRequest postRequest(const std::string& url, std::string body, const char* contentType)
{
    vrq::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.headers["Content-Type"] = contentType;
    request.body = std::move(body);
    request.timeout = std::chrono::seconds(15);
    return request;
}

} // namespace

PlaySession::PlaySession(Settings settings, std::shared_ptr<EventLog> events)
    : m_settings(std::move(settings))
    , m_events(std::move(events))
{
}

void PlaySession::begin(PlayWindow& window)
{
    m_begin = std::chrono::steady_clock::now();
    m_player = VRQGamePlayer::create(nlohmann::json::object(), weak_from_this());
    m_player->gameController()->setControlDelegate(std::weak_ptr<VRQGameControllerDelegate>(shared_from_this()));
    window.attach(m_player);
    checkStatus();
}

void PlaySession::checkStatus()
{
    if (!m_player)
        return;
    const VRQGameStatus status = m_player->gameStatus();
    if (m_reportedStatus == status)
        return;
    m_reportedStatus = status;
    m_events->emit("status", {{"status", gameStatusName(status)}, {"code", static_cast<std::uint64_t>(status)}},
                   gameStatusName(status));
}

void PlaySession::end()
{
    if (!m_player)
        return;
    m_player->stopGame();
    checkStatus();
}

double PlaySession::msSinceBegin() const
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_begin).count();
}

void PlaySession::fail(const std::string& reason)
{
    if (!m_failure)
        m_failure = reason;
}

// MARK: - Back end

void PlaySession::onInitSuccess(const std::string& clientSession)
{
    m_events->emit("client_session", {{"bytes", clientSession.size()}, {"back_end", m_settings.backendOrigin}},
                   "ready (" + std::to_string(clientSession.size()) + " bytes), sent to " + m_settings.backendOrigin);
    if (m_settings.experienceCode.empty())
        requestRemoteSession(clientSession);
    else
        registerExperienceOffer(clientSession);
}

// Posts to the back end; the answer is handled only while the session lives
// and when the back end answered at all.
void PlaySession::postToBackEnd(const std::string& path, std::string body, const char* contentType,
                                std::function<void(PlaySession&, const vrq::HttpResponse&)> onAnswer)
{
    auto request = postRequest(m_settings.backendOrigin + path, std::move(body), contentType);
    vrq::HttpTransport::shared().send(std::move(request), [weak = weak_from_this(), onAnswer = std::move(onAnswer)](
                                                              auto error, vrq::HttpResponse response) {
        auto self = weak.lock();
        if (!self)
            return;
        if (error)
            return self->fail("the back end did not answer: " + error->toString());
        onAnswer(*self, response);
    });
}

void PlaySession::requestRemoteSession(const std::string& clientSession)
{
    postToBackEnd("/session", clientSession, "text/plain", [](PlaySession& self, const vrq::HttpResponse& response) {
        if (response.status != 200)
            return self.fail("the back end refused the session: HTTP " + std::to_string(response.status) + " "
                             + shortened(response.body));
        self.startWithRemoteSession(response.body);
    });
}

void PlaySession::startWithRemoteSession(const std::string& remoteSession)
{
    m_events->emit("remote_session", {{"bytes", remoteSession.size()}},
                   "received (" + std::to_string(remoteSession.size()) + " bytes), starting the game");
    VRQError error;
    if (!m_player->startGameWithRemoteSession(remoteSession, &error))
        fail(error.code != 0 ? "the player refused the remote session: " + error.toString()
                             : "the player refused the remote session");
}

// The back end answers an experience code with the offer registered under it.
void PlaySession::registerExperienceOffer(const std::string& clientSession)
{
    const nlohmann::json body = {{"experience_code", m_settings.experienceCode}, {"client_session", clientSession}};
    // The code comes from the command line and may hold any bytes.
    postToBackEnd("/ExperienceOffer", vrq_jsonText(body), "application/json", [](PlaySession& self, const vrq::HttpResponse& response) {
        const auto answer = nlohmann::json::parse(response.body, nullptr, false);
        const bool accepted = response.status == 200 && (!answer.is_object() || answer.value("Code", 0) == 0);
        if (!accepted)
            return self.fail("the back end refused the experience offer: HTTP " + std::to_string(response.status) + " "
                             + shortened(response.body));
        self.m_events->emit("experience_code", {{"code", self.m_settings.experienceCode}},
                            "offer registered under " + self.m_settings.experienceCode + ", starting the game");
        // The player reports a failed start only in its log; no video then ends the run.
        self.m_player->startGameWithExperienceCode(self.m_settings.experienceCode, nullptr);
    });
}

// MARK: - Player events

void PlaySession::onInitFailure(int code, const VRQError& msg)
{
    m_events->emit("init_failure", {{"code", code}, {"message", msg.toString()}},
                   std::to_string(code) + " " + msg.toString());
    fail("the player could not make its offer: " + std::to_string(code));
}

void PlaySession::onConnectionFailure(int code, const std::optional<VRQError>& msg)
{
    const std::string message = msg ? msg->toString() : std::string();
    m_events->emit("failure", {{"code", code}, {"message", message}},
                   std::to_string(code) + (message.empty() ? "" : " " + message));
    fail("the session failed with " + std::to_string(code));
}

void PlaySession::onStartReConnectWithReason(int code)
{
    m_events->emit("reconnecting", {{"code", code}}, "(" + std::to_string(code) + ")");
}

void PlaySession::onVideoShow()
{
    ++m_videoShows;
    const double ms = msSinceBegin();
    if (m_videoShows == 1)
        m_events->emit("first_frame", {{"ms", ms}}, "shown " + std::to_string(static_cast<long>(ms)) + " ms after start");
    else
        m_events->emit("video_show", {{"ms", ms}, {"count", m_videoShows}}, "video shown again (connection "
                                                                               + std::to_string(m_videoShows) + ")");
}

void PlaySession::onVideoSizeChanged(vrq::Size size)
{
    const std::string text = std::to_string(static_cast<int>(size.width)) + "x" + std::to_string(static_cast<int>(size.height));
    m_events->emit("video_size", {{"width", size.width}, {"height", size.height}}, text);
}

void PlaySession::onVideoOrientationChanged(std::int64_t orientation)
{
    m_events->emit("orientation", {{"orientation", orientation}}, orientation == 3 ? "landscape" : "portrait");
}

void PlaySession::onGameProcessRun()
{
    m_events->emit("game_process_run", nlohmann::json::object(), "the remote game runs");
}

// MARK: - Controller events

// The remote cursor's state and images go to the on-screen cursor, if the
// host laid one out: hidden, it switches to first-person mode.
std::shared_ptr<VRQVirtualMouseCursor> PlaySession::mouseCursor() const
{
    auto controller = m_player ? m_player->gameController() : nullptr;
    return controller ? controller->mouseCursor() : nullptr;
}

void PlaySession::onCursorVisibleChanged(bool visible)
{
    m_events->emit("cursor_visible", {{"visible", visible}}, visible ? "shown" : "hidden");
    if (auto cursor = mouseCursor())
        cursor->setCursorIsShow(visible);
}

void PlaySession::onClickedTextField(std::int64_t result)
{
    m_events->emit("text_field", {{"result", result}}, "clicked, result " + std::to_string(result));
}

void PlaySession::onRemoteInputStatus(bool enabled)
{
    m_events->emit("remote_input", {{"enabled", enabled}}, enabled ? "enabled" : "disabled");
}

void PlaySession::onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& image, vrq::Rect frame)
{
    const int width = image ? image->width() : 0;
    const int height = image ? image->height() : 0;
    m_events->emit("cursor_image", {{"width", width}, {"height", height}, {"frame", vrq::stringFromRect(frame)}},
                   std::to_string(width) + "x" + std::to_string(height) + " at " + vrq::stringFromRect(frame));
    if (auto cursor = mouseCursor())
        cursor->setCursorImage(image, frame);
}
