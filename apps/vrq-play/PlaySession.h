#pragma once

#include "vrq/core/VRQGameControllerDelegate.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/core/VRQGamePlayerDelegate.h"
#include "vrq/platform/services/HttpTransport.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class EventLog;
class PlayWindow;
class VRQVirtualMouseCursor;

// One play session as a host runs it: it creates the player, hands the
// client session to the back end (POST /session, or /ExperienceOffer and then
// the player's experience-code start), starts the game with the remote session
// and prints every delegate call. Main thread only; owned through std::shared_ptr
// because the player and its controller hold their delegate weakly.
class PlaySession : public VRQGamePlayerDelegate,
                    public VRQGameControllerDelegate,
                    public std::enable_shared_from_this<PlaySession> {
public:
    struct Settings {
        std::string backendOrigin;
        std::string experienceCode; // empty: start with a remote session from /session
    };

    PlaySession(Settings settings, std::shared_ptr<EventLog> events);

    // Creates the player and lets the window lay out its video view.
    void begin(PlayWindow& window);
    // Prints the player's status when it changed since the last call.
    void checkStatus();
    // Stops the game; the player stays, with its last frame.
    void end();

    const std::shared_ptr<VRQGamePlayer>& player() const { return m_player; }
    std::shared_ptr<VRQVirtualMouseCursor> mouseCursor() const;
    bool videoShown() const { return m_videoShows > 0; }
    int videoShows() const { return m_videoShows; }
    // Why the session cannot play, once it is known.
    const std::optional<std::string>& failure() const { return m_failure; }

    // VRQGamePlayerDelegate
    void onInitSuccess(const std::string& clientSession) override;
    void onInitFailure(int code, const VRQError& msg) override;
    void onConnectionFailure(int code, const std::optional<VRQError>& msg) override;
    void onStartReConnectWithReason(int code) override;
    void onVideoShow() override;
    void onVideoSizeChanged(vrq::Size size) override;
    void onVideoOrientationChanged(std::int64_t orientation) override;
    void onGameProcessRun() override;

    // VRQGameControllerDelegate
    void onCursorVisibleChanged(bool visible) override;
    void onClickedTextField(std::int64_t result) override;
    void onRemoteInputStatus(bool enabled) override;
    void onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& image, vrq::Rect frame) override;

private:
    void postToBackEnd(const std::string& path, std::string body, const char* contentType,
                       std::function<void(PlaySession&, const vrq::HttpResponse&)> onAnswer);
    void requestRemoteSession(const std::string& clientSession);
    void registerExperienceOffer(const std::string& clientSession);
    void startWithRemoteSession(const std::string& remoteSession);
    void fail(const std::string& reason);
    double msSinceBegin() const;

    const Settings m_settings;
    const std::shared_ptr<EventLog> m_events;
    std::shared_ptr<VRQGamePlayer> m_player;
    std::chrono::steady_clock::time_point m_begin;
    std::optional<VRQGameStatus> m_reportedStatus;
    int m_videoShows = 0;
    std::optional<std::string> m_failure;
};
