#include "TouchStage.h"

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVKeyGamepad.h"
#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"
#include "vrq/control/VRQGameVideoView.h"
#include "vrq/control/VRQRemoteTouchScreen.h"
#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/views/Window.h"

#include <chrono>

TouchStage::TouchStage(const std::shared_ptr<VRQGamePlayer>& player, std::string_view layout)
{
    auto video = player->videoView();
    const vrq::Rect area{{0, 0}, video ? video->frame().size : vrq::Size{1280, 720}};
    auto controller = player->gameController();
    m_window = std::make_shared<vrq::Window>(area);
    m_touchScreen = std::make_shared<VRQRemoteTouchScreen>(area, controller);
    m_cursor = std::make_shared<VRQVirtualMouseCursor>(area, controller);
    controller->setMouseCursor(m_cursor);
    if (video)
        m_window->addSubview(video);
    m_window->addSubview(m_touchScreen);
    m_window->addSubview(m_cursor);
    useTouchScreen();
    if (layout.empty())
        return;
    m_gamepad = VRQVKeyGamepad::initWithFrame(area, controller);
    m_gamepad->showKeyGamepad(layout);
    m_window->addSubview(m_gamepad);
    if (m_gamepad->needConnected())
        controller->enableVirtualGamepad(true);
}

std::optional<TouchStage::Target> TouchStage::gamepadButton(std::string_view key) const
{
    if (!m_gamepad)
        return std::nullopt;
    for (const auto& button : m_gamepad->buttonList()) {
        if (button->model() && button->model()->key == key) {
            const vrq::Rect frame = button->frame();
            return Target{{frame.origin.x + frame.size.width / 2, frame.origin.y + frame.size.height / 2},
                          frame.size.width / 2};
        }
    }
    return std::nullopt;
}

// A hidden view takes no touches: the other one gets them.
void TouchStage::useTouchScreen()
{
    m_cursor->setHidden(true);
    m_touchScreen->setHidden(false);
}

void TouchStage::useCursor(int touchMode, bool firstPerson)
{
    m_touchScreen->setHidden(true);
    m_cursor->setHidden(false);
    m_cursor->setCursorTouchMode(touchMode);
    m_cursor->setCursorIsShow(!firstPerson);
}

void TouchStage::down(std::uint64_t finger, vrq::Point at)
{
    m_window->touchDown(finger, at, now());
}

void TouchStage::move(std::uint64_t finger, vrq::Point to)
{
    m_window->touchMove(finger, to, now());
}

void TouchStage::up(std::uint64_t finger, vrq::Point at)
{
    m_window->touchUp(finger, at, now());
}

double TouchStage::now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
