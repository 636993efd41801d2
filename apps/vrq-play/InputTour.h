#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class EventLog;
class TouchStage;
class VRQGameController;

namespace vrq {
class Timer;
}

// A scripted tour of every kind of input a host can send through the game
// controller: keys, mouse buttons, absolute and relative moves, the wheel, a
// gamepad with keys, sticks and triggers, the caps-lock query, paste and the
// cursor mode; and the kit's touch views: fingers on the remote touch screen
// and on the virtual mouse cursor in each of its modes. One step per interval on the main thread; the tour starts over
// after its last step until stop().
class InputTour {
public:
    struct Step {
        std::string name;
        std::function<void(VRQGameController&)> send;
    };

    InputTour(std::shared_ptr<VRQGameController> controller, std::shared_ptr<TouchStage> stage, std::shared_ptr<EventLog> events);
    ~InputTour();
    InputTour(const InputTour&) = delete;
    InputTour& operator=(const InputTour&) = delete;

    // Main thread.
    void start(std::chrono::milliseconds interval);
    void stop();
    bool isRunning() const { return m_timer != nullptr; }
    std::size_t stepsSent() const { return m_sent; }

    static std::size_t stepCount();

private:
    static std::vector<Step> makeSteps(const std::shared_ptr<EventLog>& events, const std::shared_ptr<TouchStage>& stage);
    void sendNextStep();

    const std::shared_ptr<VRQGameController> m_controller;
    const std::shared_ptr<TouchStage> m_stage;
    const std::shared_ptr<EventLog> m_events;
    const std::vector<Step> m_steps;
    std::shared_ptr<vrq::Timer> m_timer;
    std::size_t m_sent = 0;
};
