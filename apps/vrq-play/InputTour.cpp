#include "InputTour.h"

#include "EventLog.h"
#include "TouchStage.h"

#include "vrq/core/VRQGameController.h"
#include "vrq/platform/dispatch/Timer.h"

namespace {

// Windows virtual-key codes.
constexpr std::int32_t kKeyA = 0x41;
constexpr std::int32_t kKeyCapsLock = 0x14;

// Gamepad buttons as bits of one mask; the triggers use the two bits the
// buttons leave free.
constexpr std::int32_t kPadA = 0x1000;
constexpr std::int32_t kPadLeftTrigger = 0x0400;
constexpr std::int32_t kPadRightTrigger = 0x0800;

using Step = InputTour::Step;

Step press(std::string name, std::function<void(VRQGameController&, bool)> button, bool down)
{
    return {std::move(name) + (down ? " down" : " up"), [button = std::move(button), down](VRQGameController& c) { button(c, down); }};
}

void addPressAndRelease(std::vector<Step>& steps, const std::string& name, const std::function<void(VRQGameController&, bool)>& button)
{
    steps.push_back(press(name, button, true));
    steps.push_back(press(name, button, false));
}

// The replies arrive on whatever thread the controller answers on.
InputTour::Step replyStep(std::string name, const std::shared_ptr<EventLog>& events,
                          std::function<void(VRQGameController&, VRQGameController::IntResult)> request)
{
    return {name, [name, events, request = std::move(request)](VRQGameController& controller) {
                request(controller, [name, events](std::int32_t result) {
                    events->emit("input_reply", {{"step", name}, {"result", result}}, name + " -> " + std::to_string(result));
                });
            }};
}

// Fingers on the kit's touch views: two on the touch screen, then a third;
// then the cursor in absolute, touchpad, move-only and first-person modes.
void addTouchSteps(std::vector<Step>& steps, const std::shared_ptr<TouchStage>& stage)
{
    const auto on = [stage](std::function<void(TouchStage&)> fingers) {
        return [stage, fingers = std::move(fingers)](VRQGameController&) {
            if (stage)
                fingers(*stage);
        };
    };
    steps.push_back({"touch screen: two fingers down", on([](TouchStage& s) {
                         s.useTouchScreen();
                         s.down(1, {300, 300});
                         s.down(2, {500, 350});
                     })});
    steps.push_back({"touch screen: both move", on([](TouchStage& s) {
                         s.move(1, {320, 310});
                         s.move(2, {480, 340});
                     })});
    steps.push_back({"touch screen: a third finger", on([](TouchStage& s) { s.down(3, {700, 200}); })});
    steps.push_back({"touch screen: all up", on([](TouchStage& s) {
                         s.up(1, {320, 310});
                         s.up(2, {480, 340});
                         s.up(3, {700, 200});
                     })});
    steps.push_back({"cursor absolute: press and drag", on([](TouchStage& s) {
                         s.useCursor(0, false);
                         s.down(4, {640, 360});
                         s.move(4, {700, 380});
                     })});
    steps.push_back({"cursor absolute: release", on([](TouchStage& s) { s.up(4, {700, 380}); })});
    steps.push_back({"cursor touchpad: tap", on([](TouchStage& s) {
                         s.useCursor(1, false);
                         s.down(5, {600, 300});
                         s.up(5, {600, 300});
                     })});
    steps.push_back({"cursor move only: drag", on([](TouchStage& s) {
                         s.useCursor(2, false);
                         s.down(6, {600, 300});
                         s.move(6, {630, 320});
                         s.up(6, {630, 320});
                     })});
    steps.push_back({"cursor first-person: drag", on([](TouchStage& s) {
                         s.useCursor(0, true);
                         s.down(7, {600, 300});
                         s.move(7, {640, 280});
                         s.up(7, {640, 280});
                     })});
}

// Fingers on the on-screen gamepad: a face button, the direction pad (its
// first gesture only sets it up, the second slides from up to right), both
// sticks pushed past their rims and the right trigger held for a step.
void addGamepadSteps(std::vector<Step>& steps, const std::shared_ptr<TouchStage>& stage)
{
    const auto on = [stage](const char* key, std::function<void(TouchStage&, vrq::Point, double)> fingers) {
        return [stage, key, fingers = std::move(fingers)](VRQGameController&) {
            if (const auto target = stage ? stage->gamepadButton(key) : std::nullopt)
                fingers(*stage, target->center, target->radius);
        };
    };
    steps.push_back({"on-screen A", on("gamepad_a", [](TouchStage& s, vrq::Point c, double) {
                         s.down(10, c);
                         s.up(10, c);
                     })});
    steps.push_back({"on-screen pad: up, then up to right", on("dpad_xbox", [](TouchStage& s, vrq::Point c, double r) {
                         const vrq::Point up{c.x, c.y - 0.8 * r};
                         s.down(11, up);
                         s.up(11, up);
                         s.down(12, up);
                         s.move(12, {c.x + 0.6 * r, c.y - 0.6 * r});
                         s.move(12, {c.x + 0.8 * r, c.y});
                     })});
    steps.push_back({"on-screen pad: release", on("dpad_xbox", [](TouchStage& s, vrq::Point c, double r) {
                         s.up(12, {c.x + 0.8 * r, c.y});
                     })});
    steps.push_back({"on-screen sticks: left right, right up", on("stick_left", [](TouchStage& s, vrq::Point c, double r) {
                         s.down(13, c);
                         s.move(13, {c.x + 1.5 * r, c.y});
                         if (const auto right = s.gamepadButton("stick_right")) {
                             s.down(14, right->center);
                             s.move(14, {right->center.x, right->center.y - 1.5 * right->radius});
                         }
                     })});
    steps.push_back({"on-screen sticks: release", on("stick_left", [](TouchStage& s, vrq::Point c, double r) {
                         s.up(13, {c.x + 1.5 * r, c.y});
                         if (const auto right = s.gamepadButton("stick_right"))
                             s.up(14, {right->center.x, right->center.y - 1.5 * right->radius});
                     })});
    steps.push_back({"on-screen right trigger: press", on("trigger_rt_max", [](TouchStage& s, vrq::Point c, double) {
                         s.down(15, c);
                     })});
    steps.push_back({"on-screen right trigger: release", on("trigger_rt_max", [](TouchStage& s, vrq::Point c, double) {
                         s.up(15, c);
                     })});
}

} // namespace

InputTour::InputTour(std::shared_ptr<VRQGameController> controller, std::shared_ptr<TouchStage> stage,
                     std::shared_ptr<EventLog> events)
    : m_controller(std::move(controller))
    , m_stage(std::move(stage))
    , m_events(std::move(events))
    , m_steps(makeSteps(m_events, m_stage))
{
}

InputTour::~InputTour()
{
    stop();
}

std::size_t InputTour::stepCount()
{
    return makeSteps(nullptr, nullptr).size();
}

std::vector<InputTour::Step> InputTour::makeSteps(const std::shared_ptr<EventLog>& events, const std::shared_ptr<TouchStage>& stage)
{
    std::vector<Step> steps;
    addPressAndRelease(steps, "key A", [](VRQGameController& c, bool down) { c.clickKeyboard(kKeyA, down); });
    steps.push_back({"mouse to 4096,4096", [](VRQGameController& c) { c.mouseMoveTo(4096, 4096); }});
    addPressAndRelease(steps, "mouse left", [](VRQGameController& c, bool down) { c.clickMouseIsLeft(true, down); });
    addPressAndRelease(steps, "mouse right", [](VRQGameController& c, bool down) { c.clickMouseIsLeft(false, down); });
    addPressAndRelease(steps, "mouse middle", [](VRQGameController& c, bool down) { c.clickMouseMiddleKey(down); });
    steps.push_back({"mouse by 40,-25", [](VRQGameController& c) { c.mouseDeltaMove(40, -25); }});
    steps.push_back({"wheel -3", [](VRQGameController& c) { c.mouseScroll(-3); }});
    steps.push_back({"gamepad connect", [](VRQGameController& c) { c.enableVirtualGamepad(true); }});
    addPressAndRelease(steps, "gamepad A", [](VRQGameController& c, bool down) { c.clickGamepadKey(kPadA, down); });
    steps.push_back({"left stick 0.5,-1", [](VRQGameController& c) { c.turnJoyStick(0.5, -1, true); }});
    steps.push_back({"right stick -1,0.25", [](VRQGameController& c) { c.turnJoyStick(-1, 0.25, false); }});
    steps.push_back({"sticks centred", [](VRQGameController& c) {
                         c.turnJoyStick(0, 0, true);
                         c.turnJoyStick(0, 0, false);
                     }});
    addPressAndRelease(steps, "left trigger", [](VRQGameController& c, bool down) { c.clickGamepadKey(kPadLeftTrigger, down); });
    addPressAndRelease(steps, "right trigger", [](VRQGameController& c, bool down) { c.clickGamepadKey(kPadRightTrigger, down); });
    addPressAndRelease(steps, "caps lock", [](VRQGameController& c, bool down) { c.clickKeyboard(kKeyCapsLock, down); });
    steps.push_back(replyStep("caps lock query", events, [](VRQGameController& c, auto reply) { c.asyncCheckRemoteCapsLock(reply); }));
    steps.push_back(replyStep("paste", events, [](VRQGameController& c, auto reply) { c.asyncPasteText("hello from vrq-play", reply); }));
    steps.push_back({"cursor mode 1", [](VRQGameController& c) { c.setCursorShowMode(1); }});
    addTouchSteps(steps, stage);
    addGamepadSteps(steps, stage);
    return steps;
}

void InputTour::start(std::chrono::milliseconds interval)
{
    stop();
    sendNextStep();
    m_timer = vrq::Timer::onMain(interval, true, [this] { sendNextStep(); });
}

void InputTour::stop()
{
    if (m_timer) {
        m_timer->cancel();
        m_timer.reset();
    }
}

void InputTour::sendNextStep()
{
    const Step& step = m_steps[m_sent % m_steps.size()];
    ++m_sent;
    m_events->emit("input", {{"step", step.name}}, step.name);
    step.send(*m_controller);
}
