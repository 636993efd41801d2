#include "InputRouter.h"

#include "KeyMap.h"
#include "TouchStage.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"

namespace {

// The mouse, when it stands for a finger.
constexpr std::uint64_t kMouseFinger = ~std::uint64_t{0};

} // namespace

InputRouter::InputRouter(const std::shared_ptr<VRQGamePlayer>& player, bool mouseAsTouch)
    : m_player(player)
    , m_mouseAsTouch(mouseAsTouch)
{
}

// Input goes to a game that plays, not to one that is still starting.
std::shared_ptr<VRQGameController> InputRouter::controller() const
{
    const auto player = m_player.lock();
    return player && player->gameStatus() == VRQGameStatusPlaying ? player->gameController() : nullptr;
}

bool InputRouter::handle(const SDL_Event& event)
{
    switch (event.type) {
    case SDL_KEYDOWN:
    case SDL_KEYUP:
        key(event.key);
        return true;
    case SDL_MOUSEMOTION:
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
    case SDL_MOUSEWHEEL:
        // A touch screen's fingers also arrive as a mouse: they are taken as fingers.
        if (event.motion.which == SDL_TOUCH_MOUSEID)
            return true;
        if (m_mouseAsTouch)
            mouseAsFinger(event);
        else if (event.type == SDL_MOUSEMOTION)
            mouseMotion(event.motion);
        else if (event.type == SDL_MOUSEWHEEL)
            wheel(event.wheel);
        else
            mouseButton(event.button);
        return true;
    case SDL_FINGERDOWN:
    case SDL_FINGERMOTION:
    case SDL_FINGERUP:
        finger(event.tfinger);
        return true;
    default:
        return false;
    }
}

void InputRouter::key(const SDL_KeyboardEvent& event)
{
    const auto code = windowsVirtualKey(event.keysym.scancode);
    const auto target = controller();
    if (!code || event.repeat || !target)
        return;
    const bool down = event.state == SDL_PRESSED;
    // A release whose press went elsewhere (before the window had the focus) is not sent.
    if (!down && m_keysDown.erase(*code) == 0)
        return;
    if (down)
        m_keysDown.insert(*code);
    target->clickKeyboard(*code, down);
}

void InputRouter::mouseMotion(const SDL_MouseMotionEvent& event)
{
    if (!m_captured) {
        moveRemotePointer({static_cast<double>(event.x), static_cast<double>(event.y)});
        return;
    }
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const auto target = controller();
    if (!video || !target || video->bounds().size.width <= 0 || video->bounds().size.height <= 0)
        return;
    // Relative steps in the grid's units: a window point is as long as on the picture.
    const vrq::Size picture = video->bounds().size;
    target->mouseDeltaMove(event.xrel * VRQVirtualMouseCursor::kGridSize / picture.width,
                           event.yrel * VRQVirtualMouseCursor::kGridSize / picture.height);
}

bool InputRouter::moveRemotePointer(vrq::Point inWindow)
{
    const auto player = m_player.lock();
    const auto video = player ? player->videoView() : nullptr;
    const auto target = controller();
    const auto grid = video ? remoteGridPoint(*video, inWindow) : std::nullopt;
    if (!grid || !target)
        return false;
    target->mouseMoveTo(grid->x, grid->y);
    return true;
}

void InputRouter::mouseButton(const SDL_MouseButtonEvent& event)
{
    const auto target = controller();
    const bool down = event.state == SDL_PRESSED;
    if (!target || (event.button != SDL_BUTTON_LEFT && event.button != SDL_BUTTON_RIGHT && event.button != SDL_BUTTON_MIDDLE))
        return;
    // A press counts over the picture only (or anywhere while captured); its release always follows it.
    if (down && !m_captured && !moveRemotePointer({static_cast<double>(event.x), static_cast<double>(event.y)}))
        return;
    if (!down && m_buttonsDown.erase(event.button) == 0)
        return;
    if (down)
        m_buttonsDown.insert(event.button);
    if (event.button == SDL_BUTTON_MIDDLE)
        target->clickMouseMiddleKey(down);
    else
        target->clickMouseIsLeft(event.button == SDL_BUTTON_LEFT, down);
}

void InputRouter::wheel(const SDL_MouseWheelEvent& event)
{
    const auto target = controller();
    const double steps = event.direction == SDL_MOUSEWHEEL_FLIPPED ? -event.preciseY : event.preciseY;
    if (target && steps != 0)
        target->mouseScroll(steps);
}

void InputRouter::finger(const SDL_TouchFingerEvent& event)
{
    if (!m_stage)
        return;
    const auto id = static_cast<std::uint64_t>(event.fingerId);
    const vrq::Point at{event.x * m_windowSize.width, event.y * m_windowSize.height};
    if (event.type == SDL_FINGERDOWN) {
        m_fingersDown.insert(id);
        m_stage->down(id, at);
    } else if (event.type == SDL_FINGERMOTION) {
        m_stage->move(id, at);
    } else if (m_fingersDown.erase(id) > 0) {
        m_stage->up(id, at);
    }
}

void InputRouter::mouseAsFinger(const SDL_Event& event)
{
    if (!m_stage || event.type == SDL_MOUSEWHEEL)
        return;
    if (event.type == SDL_MOUSEMOTION) {
        if (event.motion.state & SDL_BUTTON_LMASK)
            m_stage->move(kMouseFinger, {static_cast<double>(event.motion.x), static_cast<double>(event.motion.y)});
        return;
    }
    if (event.button.button != SDL_BUTTON_LEFT)
        return;
    const vrq::Point at{static_cast<double>(event.button.x), static_cast<double>(event.button.y)};
    if (event.type == SDL_MOUSEBUTTONDOWN) {
        m_fingersDown.insert(kMouseFinger);
        m_stage->down(kMouseFinger, at);
    } else if (m_fingersDown.erase(kMouseFinger) > 0) {
        m_stage->up(kMouseFinger, at);
    }
}

void InputRouter::releaseAll()
{
    if (const auto target = controller()) {
        for (const std::int32_t code : m_keysDown)
            target->clickKeyboard(code, false);
        for (const std::uint8_t button : m_buttonsDown) {
            if (button == SDL_BUTTON_MIDDLE)
                target->clickMouseMiddleKey(false);
            else
                target->clickMouseIsLeft(button == SDL_BUTTON_LEFT, false);
        }
    }
    m_keysDown.clear();
    m_buttonsDown.clear();
    if (m_stage && !m_fingersDown.empty())
        m_stage->cancelAll();
    m_fingersDown.clear();
}

std::optional<vrq::Point> InputRouter::remoteGridPoint(const vrq::View& video, vrq::Point inRoot)
{
    const vrq::Rect bounds = video.bounds();
    if (bounds.size.width <= 0 || bounds.size.height <= 0)
        return std::nullopt;
    const vrq::Point local = video.convertPointFromView(inRoot, nullptr);
    if (!vrq::rectContainsPoint(bounds, local))
        return std::nullopt;
    const double grid = VRQVirtualMouseCursor::kGridSize;
    return vrq::Point{(local.x - bounds.origin.x) * grid / bounds.size.width,
                      (local.y - bounds.origin.y) * grid / bounds.size.height};
}
