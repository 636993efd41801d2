#pragma once

#include "PlayOptions.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

class BundledServer;
class EventLog;
class InputTour;
class PlaySession;
class PlayWindow;
class SdlWindow;
class TouchStage;

namespace vrq {
class Timer;
}

// The demo host: sets up the kit, plays one session for the requested time
// against the bundled or a named back end, prints what happens and judges the
// run. Runs on the main thread (GLib's default context).
class PlayApp {
public:
    explicit PlayApp(PlayOptions options);
    ~PlayApp();
    PlayApp(const PlayApp&) = delete;
    PlayApp& operator=(const PlayApp&) = delete;

    // The process exit code: 0 when the session played and, when the uploads
    // go to the bundled server, every one arrived signed; 1 otherwise (the
    // reason is printed).
    int run();

private:
    bool startBackend();
    std::unique_ptr<PlayWindow> openWindow();
    void play();
    void setUpStage();
    void onTick();
    void startTourIfDue();
    void finish();
    void waitForUploads();
    std::optional<std::string> writeSnapshot();
    int verdict(const std::optional<std::string>& snapshotError);

    const PlayOptions m_options;
    const std::shared_ptr<EventLog> m_events;
    std::unique_ptr<BundledServer> m_server;
    std::string m_backendOrigin;
    bool m_metricsToBundled = false;
    std::unique_ptr<PlayWindow> m_window;
    SdlWindow* m_sdlWindow = nullptr; // m_window, when it is a real window
    bool m_started = false;           // the video showed and the stage and tour started
    std::shared_ptr<PlaySession> m_session;
    std::shared_ptr<TouchStage> m_stage;
    std::unique_ptr<InputTour> m_tour;
    std::shared_ptr<vrq::Timer> m_sampler;
    std::chrono::steady_clock::time_point m_deadline;
    int m_samples = 0;
};
