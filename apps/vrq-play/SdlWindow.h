#pragma once

#include "FingerReplay.h"
#include "PlayWindow.h"

#include "vrq/platform/views/View.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class ControllerInput;
class EventLog;
class InputRouter;
class StatsOverlay;
class TouchStage;
class VideoPresenter;
class ViewRenderer;
enum class WindowAction;
struct SDL_Renderer;
struct SDL_Window;
union SDL_Event;

// The game in a desktop window (SDL2): the video letterboxed with the kit's
// views over it, drawn from their view tree, and the person's keyboard,
// mouse, fingers and game controllers sent to the game. A new frame is drawn
// as soon as it arrives, and nothing is drawn when nothing changed; frames
// never wait behind one another. Main thread only.
class SdlWindow : public PlayWindow {
public:
    struct Settings {
        bool mouseAsTouch = false;
    };

    // Nothing, with the reason, when there is no display to open a window on.
    static std::unique_ptr<SdlWindow> open(Settings settings, std::shared_ptr<EventLog> events, std::string* reason);
    ~SdlWindow() override;

    void attach(const std::shared_ptr<VRQGamePlayer>& player) override;
    void pump() override;
    bool closeRequested() const override { return m_closeRequested; }
    void detach() override;

    // The views to draw and to hand fingers to; the stage is laid out in the window.
    void setStage(std::shared_ptr<TouchStage> stage);
    // The statistics panel's text (the panel shows when toggled).
    void showStatistics(const std::vector<std::string>& lines);
    void perform(WindowAction action);
    // The game plays: game controllers are looked for (those already
    // plugged in connect now), and the gestures, if any, play from now on.
    void startInput(std::optional<FingerReplay> replay);
    // Draws the window now and writes what it shows as a PNG file.
    std::optional<std::string> writeSnapshot(const std::filesystem::path& path);
    // The window's own figures: frames presented, decoded-to-presented latency, renderer.
    nlohmann::json figures() const;
    // One line of the statistics panel: the window's latency and frame counts.
    std::string figuresLine() const;

private:
    SdlWindow(Settings settings, std::shared_ptr<EventLog> events, SDL_Window* window, SDL_Renderer* renderer);

    void handle(const SDL_Event& event);
    void handleWindowEvent(const SDL_Event& event);
    void layOut();
    void render();
    // The tree drawn and touched: the stage's, or the bare video view before it.
    std::shared_ptr<vrq::View> rootView() const;
    void compose(const vrq::View* root);
    void paste();

    const Settings m_settings;
    const std::shared_ptr<EventLog> m_events;
    SDL_Window* m_window;
    SDL_Renderer* m_renderer;
    std::string m_rendererName;
    std::unique_ptr<VideoPresenter> m_presenter;
    std::unique_ptr<ViewRenderer> m_views;
    std::shared_ptr<StatsOverlay> m_stats;
    std::unique_ptr<InputRouter> m_input;
    std::unique_ptr<ControllerInput> m_controllers;
    std::weak_ptr<VRQGamePlayer> m_player;
    std::shared_ptr<TouchStage> m_stage;
    // The window's and the video's sizes the views were last laid out for.
    std::optional<std::pair<vrq::Size, vrq::Size>> m_laidOutFor;
    std::optional<FingerReplay> m_replay;
    nlohmann::json m_finalFigures; // kept when the window closes
    bool m_dirty = true;
    bool m_closeRequested = false;
};
