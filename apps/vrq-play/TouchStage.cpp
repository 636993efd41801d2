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

#include <algorithm>
#include <chrono>

TouchStage::TouchStage(const std::shared_ptr<VRQGamePlayer>& player, std::string_view layout)
    : m_player(player)
{
    auto video = player->videoView();
    const vrq::Rect area{{0, 0}, video ? video->frame().size : vrq::Size{1280, 720}};
    auto controller = player->gameController();
    m_window = std::make_shared<vrq::Window>(area);
    m_picture = std::make_shared<vrq::View>(area);
    m_touchScreen = std::make_shared<VRQRemoteTouchScreen>(area, controller);
    m_cursor = std::make_shared<VRQVirtualMouseCursor>(area, controller);
    controller->setMouseCursor(m_cursor);
    if (video)
        m_window->addSubview(video);
    m_window->addSubview(m_picture);
    m_picture->addSubview(m_touchScreen);
    m_picture->addSubview(m_cursor);
    useTouchScreen();
    if (!layout.empty()) {
        m_gamepad = VRQVKeyGamepad::initWithFrame(area, controller);
        m_gamepad->showKeyGamepad(layout);
        m_window->addSubview(m_gamepad);
    }
    layOut(area.size);
}

void TouchStage::start()
{
    const auto player = m_player.lock();
    if (player && m_gamepad && m_gamepad->needConnected())
        player->gameController()->enableVirtualGamepad(true);
}

vrq::Rect TouchStage::pictureRect(vrq::Size video, vrq::Size area)
{
    if (video.width <= 0 || video.height <= 0)
        return {{0, 0}, area};
    const double scale = std::min(area.width / video.width, area.height / video.height);
    const vrq::Size size{video.width * scale, video.height * scale};
    return {{(area.width - size.width) / 2, (area.height - size.height) / 2}, size};
}

void TouchStage::layOut(vrq::Size area)
{
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const vrq::Rect picture = pictureRect(video ? video->videoSize() : vrq::Size{}, area);
    m_window->setFrame({{0, 0}, area});
    if (video) {
        // Bounds and centre, not the frame: a pinch may have given the video a transform.
        video->setBounds({{0, 0}, picture.size});
        video->setCenter({picture.origin.x + picture.size.width / 2, picture.origin.y + picture.size.height / 2});
    }
    m_picture->setFrame(picture);
    m_touchScreen->setFrame({{0, 0}, picture.size});
    m_cursor->setFrame({{0, 0}, picture.size});
    if (m_gamepad)
        m_gamepad->setFrame({{0, 0}, area});
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

void TouchStage::cancelAll()
{
    m_window->cancelAllTouches(now());
}

double TouchStage::now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
