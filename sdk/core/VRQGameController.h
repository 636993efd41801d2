#pragma once

#include "vrq/core/VRQGameControllerDelegate.h"
#include "vrq/platform/views/Geometry.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class VRQGamePlayer;
class VRQVirtualMouseCursor;

namespace vrq {
class PendingLimit;
}

// Sends the player's keyboard, mouse and gamepad input to the remote game as
// small JSON messages, and turns the remote side's input-related replies into
// delegate calls. Outgoing operations may be called from any thread; with no
// player they do nothing. Delegate calls are posted to the main thread.
class VRQGameController : public std::enable_shared_from_this<VRQGameController> {
public:
    using IntResult = std::function<void(std::int32_t result)>;
    static constexpr std::size_t kCursorImageCacheLimit = 100;

    VRQGameController();

    std::shared_ptr<VRQGamePlayer> weakPlayer() const;
    void setWeakPlayer(std::weak_ptr<VRQGamePlayer> player);
    std::shared_ptr<VRQGameControllerDelegate> controlDelegate() const;
    void setControlDelegate(std::weak_ptr<VRQGameControllerDelegate> delegate);
    // The on-screen mouse cursor, owned by the controller once set (the host
    // makes it; the controller forwards the remote cursor's state to it).
    std::shared_ptr<VRQVirtualMouseCursor> mouseCursor() const;
    void setMouseCursor(std::shared_ptr<VRQVirtualMouseCursor> cursor);

    // Keyboard and buttons. key: a Windows virtual-key code.
    void clickKeyboard(std::int32_t key, bool isDown);
    void remoteMobileBackClick();
    void remoteMobileHomeClick();
    void resetRemoteKeycode();
    void clickGamepadKey(std::int32_t key, bool isDown);
    // x and y in [-1, 1]; scaled to ±32767, truncated, not clamped.
    void turnJoyStick(double x, double y, bool isLeft);
    void enableVirtualGamepad(bool enable);

    // Mouse, on the remote 8192 x 8192 grid.
    void mouseMoveTo(double x, double y);
    void mouseDeltaMove(double x, double y);
    void clickMouseIsLeft(bool isLeft, bool isDown);
    void clickMouseMiddleKey(bool isDown);
    void mouseScroll(double delta);
    void setCursorShowMode(std::int64_t mode);

    void sendKeycodeMessage(const nlohmann::json& message);

    // Requests with a reply; each callback is called at most once.
    void asyncCheckRemoteCapsLock(IntResult callback);
    void asyncPasteText(const std::string& text, IntResult callback);
    void asyncAutoLogin(const std::string& userName, const std::string& password, IntResult finishBlk);
    void cancleAutoLogin();

    // Server messages, on the thread that delivers them.
    void handleMouseCursorStateMsg(const nlohmann::json& message);
    void handleClickedTextFieldMsg(const nlohmann::json& message);
    void handleRemoteInputStatusMsg(const nlohmann::json& message);
    void handleAutoLoginStatusMsg(const nlohmann::json& message);
    void handleMouseCursorImageMsg(const nlohmann::json& message);

    std::size_t cursorImageCacheSize() const;

private:
    struct CursorImage {
        std::shared_ptr<const vrq::Image> image;
        std::string frame; // the frame as rectangle text
    };

    void send(const nlohmann::json& message);
    void notifyDelegate(std::function<void(VRQGameControllerDelegate&)> call);
    std::optional<CursorImage> storeCursorImage(const std::string& key, const nlohmann::json& message);
    void sendCursorReply(const char* type, const std::string& key);

    // Delegate calls asked for by server messages, waiting for the main thread.
    const std::shared_ptr<vrq::PendingLimit> m_deliveries;
    mutable std::mutex m_mutex; // guards the members below
    std::weak_ptr<VRQGamePlayer> m_weakPlayer;
    std::weak_ptr<VRQGameControllerDelegate> m_controlDelegate;
    std::shared_ptr<VRQVirtualMouseCursor> m_mouseCursor;
    std::map<std::string, CursorImage> m_cursorImageCache;
};
