#include "PlayApp.h"

#include "BundledServer.h"
#include "EventLog.h"
#include "FrameSnapshot.h"
#include "HeadlessWindow.h"
#include "InputTour.h"
#include "TouchStage.h"
#include "PlaySession.h"
#include "PrintingLogDelegate.h"
#include "SdlWindow.h"
#include "SessionStatistics.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/rtc/VRQWebrtcClient.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <algorithm>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// The kit's warnings and errors only: the events say what happens.
constexpr int kLogLevel = 2;
// Time left at the end of the tour's first round, for the last replies.
constexpr auto kTourMargin = 500ms;
constexpr auto kTourStepInterval = 200ms;
constexpr auto kUploadWait = 5s;

} // namespace

PlayApp::PlayApp(PlayOptions options)
    : m_options(std::move(options))
    , m_events(std::make_shared<EventLog>(m_options.jsonEvents))
{
}

PlayApp::~PlayApp() = default;

int PlayApp::run()
{
    // The kit's queues may still log while the process exits: the printer is never destroyed.
    static auto* const logPrinter = new PrintingLogDelegate;
    VRQGamePlayer::setLogger(logPrinter, kLogLevel);
    // The kit's set-up runs while the back end starts.
    VRQGamePlayer::prepare();
    if (!startBackend())
        return 1;
    play();
    // The window shows the last frame until it closes: the snapshot comes first.
    std::optional<std::string> snapshotError;
    if (!m_options.snapshotPath.empty())
        snapshotError = writeSnapshot();
    finish();
    const int code = verdict(snapshotError);
    m_session.reset();
    if (m_server)
        m_server->stop();
    return code;
}

bool PlayApp::startBackend()
{
    std::string metricsOrigin = m_options.metricsOrigin;
    if (m_options.usesBundledServer()) {
        std::string error;
        m_server = BundledServer::start(m_options.bundledHost, &error);
        if (!m_server) {
            m_events->emit("error", {{"reason", error}}, error);
            return false;
        }
        m_backendOrigin = m_server->origin();
        // The game server is on this loopback address: so is the kit's end
        // of every connection, whatever other interfaces the machine has.
        VRQWebrtClient::setIceAddresses({m_options.bundledHost});
        if (metricsOrigin.empty())
            metricsOrigin = m_backendOrigin;
        m_metricsToBundled = metricsOrigin == m_backendOrigin;
    } else {
        m_backendOrigin = m_options.serverOrigin;
    }
    VRQHttpHelper::setBaseHost(metricsOrigin);
    VRQHttpHelper::setExperienceSessionOrigin(m_backendOrigin);
    m_events->emit("back_end", {{"origin", m_backendOrigin}, {"metrics", metricsOrigin}, {"bundled", m_server != nullptr}},
                   m_backendOrigin + (m_server ? " (bundled)" : "") + ", metrics to " + metricsOrigin);
    return true;
}

// A window where there is a display, unless told otherwise.
std::unique_ptr<PlayWindow> PlayApp::openWindow()
{
    if (!m_options.headless) {
        std::string reason;
        if (auto window = SdlWindow::open({m_options.mouseAsTouch}, m_events, &reason)) {
            m_sdlWindow = window.get();
            return window;
        }
        m_events->emit("headless", {{"reason", reason}}, reason + ": playing without a window" +
                                                         (m_options.replay ? ", and without the finger replay" : ""));
    }
    return std::make_unique<HeadlessWindow>();
}

void PlayApp::play()
{
    m_window = openWindow();
    m_deadline = Clock::now() + std::chrono::seconds(m_options.durationSeconds);
    m_session = std::make_shared<PlaySession>(PlaySession::Settings{m_backendOrigin, m_options.experienceCode}, m_events);
    m_session->begin(*m_window);
    setUpStage();
    m_sampler = vrq::Timer::onMain(1s, true, [this] { onTick(); });
    // Ends early only when the session failed for good or the window was closed.
    vrq::runMainLoopUntil(
        [this] {
            m_window->pump();
            m_session->checkStatus();
            startTourIfDue();
            return Clock::now() >= m_deadline || m_session->failure() || m_window->closeRequested();
        },
        std::chrono::seconds(m_options.durationSeconds) + 1s);
    m_sampler->cancel();
    if (m_tour)
        m_tour->stop();
}

// The kit's touch views go over the video in a window, and headless when the
// tour or a gamepad layout needs them.
void PlayApp::setUpStage()
{
    const auto& player = m_session->player();
    if (!player || (!m_sdlWindow && !m_options.autoplay && m_options.layoutText.empty()))
        return;
    m_stage = std::make_shared<TouchStage>(player, m_options.layoutText);
    if (m_sdlWindow)
        m_sdlWindow->setStage(m_stage);
}

void PlayApp::onTick()
{
    const auto& player = m_session->player();
    if (!player)
        return;
    ++m_samples;
    const nlohmann::json sample = sampleStatistics(*player);
    m_events->emit("stats", sample, describeStatistics(sample));
    if (m_sdlWindow) {
        auto lines = statisticsLines(sample);
        lines.push_back(m_sdlWindow->figuresLine());
        m_sdlWindow->showStatistics(lines);
    }
}

// With the first frame the stage starts (a controller layout connects the
// remote controller) and so does the tour; the tour's first round is
// squeezed into the time left when 200 ms steps would not fit, so that a
// short run still sends every kind of input once.
void PlayApp::startTourIfDue()
{
    if (m_started || !m_session->videoShown())
        return;
    m_started = true;
    if (m_stage)
        m_stage->start();
    if (m_sdlWindow)
        m_sdlWindow->startInput(m_options.replay);
    if (!m_options.autoplay || !m_stage)
        return;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - Clock::now()) - kTourMargin;
    const auto fitting = left / static_cast<long>(InputTour::stepCount());
    const auto interval = std::clamp(fitting, std::chrono::milliseconds(20), std::chrono::milliseconds(kTourStepInterval));
    m_tour = std::make_unique<InputTour>(m_session->player()->gameController(), m_stage, m_events);
    m_events->emit("autoplay", {{"steps", InputTour::stepCount()}, {"interval_ms", interval.count()}},
                   std::to_string(InputTour::stepCount()) + " steps, one every " + std::to_string(interval.count()) + " ms");
    m_tour->start(interval);
}

void PlayApp::finish()
{
    if (m_session->player()) {
        const nlohmann::json last = sampleStatistics(*m_session->player());
        m_events->emit("stats", last, describeStatistics(last));
        ++m_samples;
    }
    m_window->detach();
    m_session->end();
    waitForUploads();
}

// The last metric and log records go out after the stop; they get a bounded
// time to arrive. The transport is idle once nothing has been pending for a while.
void PlayApp::waitForUploads()
{
    auto& monitor = VRQSDKMonitor::sharedInstance();
    monitor.waitForPendingReports();
    vrqFlushLog();
    auto idleSince = Clock::now();
    vrq::runMainLoopUntil(
        [&] {
            if (vrq::HttpTransport::shared().pendingCount() > 0)
                idleSince = Clock::now();
            return Clock::now() - idleSince >= 300ms;
        },
        kUploadWait);
}

std::optional<std::string> PlayApp::writeSnapshot()
{
    if (m_sdlWindow)
        return m_sdlWindow->writeSnapshot(m_options.snapshotPath);
    const auto& player = m_session->player();
    const auto view = player ? player->videoView() : nullptr;
    const auto frame = view ? view->latestFrame() : nullptr;
    if (!frame)
        return "no video frame was decoded";
    if (auto error = writeFramePng(*frame, m_options.snapshotPath))
        return error;
    m_events->emit("snapshot", {{"path", m_options.snapshotPath}, {"width", frame->width()}, {"height", frame->height()}},
                   m_options.snapshotPath + " (" + std::to_string(frame->width()) + "x" + std::to_string(frame->height()) + ")");
    return std::nullopt;
}

int PlayApp::verdict(const std::optional<std::string>& snapshotError)
{
    std::optional<std::string> reason = m_session->failure();
    if (!reason && !m_session->videoShown())
        reason = "no video was shown within " + std::to_string(m_options.durationSeconds) + " s";
    if (!reason && snapshotError)
        reason = "snapshot: " + *snapshotError;
    nlohmann::json summary = {{"played", m_session->videoShown()}, {"video_shows", m_session->videoShows()},
                              {"samples", m_samples}};
    if (m_sdlWindow)
        summary["window"] = m_sdlWindow->figures();
    if (m_server) {
        summary["ingest"] = m_server->ingestSummary();
        summary["inputs"] = m_server->inputSummary();
        if (!reason && m_metricsToBundled && !summary["ingest"]["all_signed"].get<bool>())
            reason = summary["ingest"]["bulks"] == 0 ? "no metric or log bulk reached the bundled server"
                                                     : "a bulk reached the bundled server with an invalid signature";
    }
    summary["ok"] = !reason;
    if (reason)
        summary["reason"] = *reason;
    std::string text = reason ? "FAILED: " + *reason : "played";
    if (m_server)
        text += "; ingest " + summary["ingest"].dump() + "; inputs " + summary["inputs"].dump();
    m_events->emit("summary", summary, text);
    return reason ? 1 : 0;
}
