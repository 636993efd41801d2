#include "SdlWindow.h"

#include "ControllerInput.h"
#include "EventLog.h"
#include "FrameSnapshot.h"
#include "InputRouter.h"
#include "KeyBindings.h"
#include "StatsOverlay.h"
#include "TouchStage.h"
#include "VideoPresenter.h"
#include "ViewRenderer.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/views/Window.h"

#include <SDL.h>

#include <cstring>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr Uint32 kSubsystems = SDL_INIT_VIDEO;

// Video drivers that show nothing to anyone.
bool isHeadlessDriver(const char* name)
{
    return !name || std::strcmp(name, "offscreen") == 0 || std::strcmp(name, "dummy") == 0 ||
           std::strcmp(name, "evdev") == 0;
}

vrq::Size pointsOf(SDL_Window* window)
{
    int width = 0;
    int height = 0;
    SDL_GetWindowSize(window, &width, &height);
    return {static_cast<double>(width), static_cast<double>(height)};
}

} // namespace

std::unique_ptr<SdlWindow> SdlWindow::open(Settings settings, std::shared_ptr<EventLog> events, std::string* reason)
{
    // The window's keys go to the game: the screen saver must not cut in.
    SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "0");
    if (SDL_InitSubSystem(kSubsystems) != 0) {
        *reason = SDL_GetError();
        return nullptr;
    }
    if (isHeadlessDriver(SDL_GetCurrentVideoDriver())) {
        *reason = "no display (SDL video driver: " + std::string(SDL_GetCurrentVideoDriver() ? SDL_GetCurrentVideoDriver() : "none") + ")";
        SDL_QuitSubSystem(kSubsystems);
        return nullptr;
    }
    SDL_Window* window = SDL_CreateWindow("vrq-play", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, kWidth, kHeight,
                                          SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI);
    SDL_Renderer* renderer = window ? SDL_CreateRenderer(window, -1, 0) : nullptr;
    if (!renderer) {
        *reason = SDL_GetError();
        if (window)
            SDL_DestroyWindow(window);
        SDL_QuitSubSystem(kSubsystems);
        return nullptr;
    }
    return std::unique_ptr<SdlWindow>(new SdlWindow(settings, std::move(events), window, renderer));
}

SdlWindow::SdlWindow(Settings settings, std::shared_ptr<EventLog> events, SDL_Window* window, SDL_Renderer* renderer)
    : m_settings(settings)
    , m_events(std::move(events))
    , m_window(window)
    , m_renderer(renderer)
    , m_presenter(std::make_unique<VideoPresenter>(renderer))
    , m_views(std::make_unique<ViewRenderer>(renderer))
    , m_stats(std::make_shared<StatsOverlay>())
{
    SDL_RendererInfo info{};
    SDL_GetRendererInfo(renderer, &info);
    m_rendererName = info.name ? info.name : "unknown";
    int width = 0;
    int height = 0;
    SDL_GetWindowSize(window, &width, &height);
    m_events->emit("window", {{"renderer", m_rendererName}, {"video_driver", SDL_GetCurrentVideoDriver()}, {"width", width}, {"height", height}},
                   std::to_string(width) + "x" + std::to_string(height) + ", " + m_rendererName + " renderer on " +
                       SDL_GetCurrentVideoDriver());
}

SdlWindow::~SdlWindow()
{
    detach();
}

void SdlWindow::attach(const std::shared_ptr<VRQGamePlayer>& player)
{
    m_player = player;
    const vrq::Size area = pointsOf(m_window);
    if (auto view = player->videoView()) {
        view->setFrame({{0, 0}, area});
        // A frame ends the main loop's wait at once: it is drawn on the next turn.
        view->setFrameObserver([] { vrq::wakeMainLoop(); });
    }
    m_input = std::make_unique<InputRouter>(player, m_settings.mouseAsTouch);
    m_input->setWindowSize(area);
}

void SdlWindow::setStage(std::shared_ptr<TouchStage> stage)
{
    m_stage = std::move(stage);
    if (m_input)
        m_input->setStage(m_stage);
    m_laidOutFor.reset(); // lay it out on the next turn
}

void SdlWindow::detach()
{
    if (!m_window)
        return;
    if (const auto player = m_player.lock(); player && player->videoView())
        player->videoView()->setFrameObserver(nullptr);
    if (m_input)
        m_input->releaseAll();
    m_finalFigures = figures();
    if (m_controllers) {
        m_controllers.reset(); // closes the controllers while their subsystem runs
        SDL_QuitSubSystem(SDL_INIT_GAMECONTROLLER);
    }
    m_input.reset();
    m_stage.reset();
    m_views.reset();
    m_presenter.reset();
    SDL_DestroyRenderer(m_renderer);
    SDL_DestroyWindow(m_window);
    m_renderer = nullptr;
    m_window = nullptr;
    SDL_QuitSubSystem(kSubsystems);
}

void SdlWindow::pump()
{
    if (!m_window)
        return;
    if (m_replay && m_replay->pushDue(SDL_GetWindowID(m_window)))
        m_replay.reset();
    SDL_Event event;
    while (SDL_PollEvent(&event))
        handle(event);
    layOut();
    render();
}

void SdlWindow::handle(const SDL_Event& event)
{
    if (event.type == SDL_QUIT) {
        m_closeRequested = true;
        return;
    }
    if (event.type == SDL_WINDOWEVENT) {
        handleWindowEvent(event);
        return;
    }
    if (event.type == SDL_KEYDOWN && !event.key.repeat) {
        if (const auto action = windowActionFor(event.key.keysym.scancode, event.key.keysym.mod)) {
            perform(*action);
            return;
        }
    }
    if (m_input && m_input->handle(event))
        return;
    if (m_controllers)
        m_controllers->handle(event);
}

void SdlWindow::handleWindowEvent(const SDL_Event& event)
{
    switch (event.window.event) {
    case SDL_WINDOWEVENT_SIZE_CHANGED:
    case SDL_WINDOWEVENT_EXPOSED:
        m_dirty = true;
        break;
    case SDL_WINDOWEVENT_FOCUS_LOST:
        // Nothing stays pressed on the remote side while the person is elsewhere.
        if (m_input)
            m_input->releaseAll();
        break;
    default:
        break;
    }
}

void SdlWindow::perform(WindowAction action)
{
    switch (action) {
    case WindowAction::ToggleStatistics:
        m_stats->setHidden(!m_stats->isHidden());
        break;
    case WindowAction::ToggleMouseCapture:
        if (m_input) {
            m_input->setCaptured(!m_input->isCaptured());
            SDL_SetRelativeMouseMode(m_input->isCaptured() ? SDL_TRUE : SDL_FALSE);
        }
        break;
    case WindowAction::ToggleFullscreen: {
        const bool full = (SDL_GetWindowFlags(m_window) & SDL_WINDOW_FULLSCREEN_DESKTOP) != 0;
        SDL_SetWindowFullscreen(m_window, full ? 0 : SDL_WINDOW_FULLSCREEN_DESKTOP);
        break;
    }
    case WindowAction::Paste:
        paste();
        break;
    case WindowAction::Quit:
        m_closeRequested = true;
        break;
    }
    m_dirty = true;
}

void SdlWindow::paste()
{
    const auto player = m_player.lock();
    char* clipboard = SDL_GetClipboardText();
    const std::string text = clipboard ? clipboard : "";
    SDL_free(clipboard);
    if (!player || text.empty())
        return;
    player->gameController()->asyncPasteText(text, [events = m_events, length = text.size()](std::int32_t result) {
        events->emit("paste", {{"characters", length}, {"result", result}},
                     std::to_string(length) + " bytes, result " + std::to_string(result));
    });
}

// The views follow the window's size and the video's: the stage letterboxes
// the picture, the gamepad lays itself out again on a new width.
void SdlWindow::layOut()
{
    const vrq::Size area = pointsOf(m_window);
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const vrq::Size videoSize = video ? video->videoSize() : vrq::Size{};
    if (m_laidOutFor == std::pair{area, videoSize})
        return;
    m_laidOutFor = std::pair{area, videoSize};
    if (m_input)
        m_input->setWindowSize(area);
    if (m_stage)
        m_stage->layOut(area);
    else if (video)
        video->setFrame(TouchStage::pictureRect(videoSize, area));
    m_dirty = true;
}

// Draws when a frame came, a view changed or the window needs it.
void SdlWindow::render()
{
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const auto drawnFrom = std::chrono::steady_clock::now();
    const bool newFrame = video && m_presenter->upload(video->latestFrame());
    const auto root = rootView();
    if (root)
        root->layoutIfNeeded();
    const bool viewsChanged = (root && root->subtreeNeedsDisplay()) || m_stats->subtreeNeedsDisplay();
    if (!newFrame && !viewsChanged && !m_dirty)
        return;
    compose(root.get());
    SDL_RenderPresent(m_renderer);
    m_presenter->presented(drawnFrom, std::chrono::steady_clock::now());
    if (root)
        root->clearNeedsDisplay();
    m_stats->clearNeedsDisplay();
    m_views->endFrame();
    m_dirty = false;
}

std::shared_ptr<vrq::View> SdlWindow::rootView() const
{
    if (m_stage)
        return m_stage->root();
    const auto player = m_player.lock();
    return player ? player->videoView() : nullptr;
}

void SdlWindow::compose(const vrq::View* root)
{
    int pixelsWide = 0;
    int pixelsHigh = 0;
    SDL_GetRendererOutputSize(m_renderer, &pixelsWide, &pixelsHigh);
    const vrq::Size area = pointsOf(m_window);
    const double scale = area.width > 0 ? pixelsWide / area.width : 1.0;
    SDL_SetRenderDrawColor(m_renderer, 0, 0, 0, 255);
    SDL_RenderClear(m_renderer);
    if (root)
        m_views->draw(*root, scale, m_presenter->texture());
    m_views->draw(*m_stats, scale, nullptr);
}

void SdlWindow::startInput(std::optional<FingerReplay> replay)
{
    const auto player = m_player.lock();
    if (!m_window || !player || m_controllers)
        return;
    // SDL announces the controllers already plugged in once its subsystem starts.
    if (SDL_InitSubSystem(SDL_INIT_GAMECONTROLLER) == 0)
        m_controllers = std::make_unique<ControllerInput>(player->gameController());
    m_replay = std::move(replay);
    if (m_replay)
        m_replay->start();
}

void SdlWindow::showStatistics(const std::vector<std::string>& lines)
{
    m_stats->setLines(lines);
}

std::optional<std::string> SdlWindow::writeSnapshot(const std::filesystem::path& path)
{
    if (!m_window)
        return "the window is closed";
    layOut();
    compose(rootView().get());
    int width = 0;
    int height = 0;
    SDL_GetRendererOutputSize(m_renderer, &width, &height);
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    const int read = SDL_RenderReadPixels(m_renderer, nullptr, SDL_PIXELFORMAT_RGBA32, rgba.data(), width * 4);
    SDL_RenderPresent(m_renderer);
    if (read != 0)
        return std::string("cannot read the window: ") + SDL_GetError();
    if (auto error = writeRgbaPng(width, height, rgba, path))
        return error;
    m_events->emit("snapshot", {{"path", path.string()}, {"width", width}, {"height", height}, {"window", true}},
                   path.string() + " (" + std::to_string(width) + "x" + std::to_string(height) + ", the window)");
    return std::nullopt;
}

nlohmann::json SdlWindow::figures() const
{
    if (!m_presenter)
        return m_finalFigures;
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const auto figures = m_presenter->figures();
    return {{"renderer", m_rendererName},
            {"frames_presented", figures.presented},
            {"frames_decoded", video ? video->framesReceived() : 0},
            {"latency_p50_ms", figures.p50Ms},
            {"latency_p99_ms", figures.p99Ms},
            {"draw_p50_ms", figures.drawP50Ms}};
}

std::string SdlWindow::figuresLine() const
{
    const auto data = figures();
    char line[160];
    std::snprintf(line, sizeof line, "window: decoded to presented p50 %.1f ms, p99 %.1f ms; %llu of %llu frames",
                  data["latency_p50_ms"].get<double>(), data["latency_p99_ms"].get<double>(),
                  data["frames_presented"].get<unsigned long long>(), data["frames_decoded"].get<unsigned long long>());
    return line;
}
