#include "vrq/core/VRQGameController.h"

#include "vrq/core/VRQGamePlayer.h"
#include "vrq/core/VRQHostCall_p.h"
#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/PendingLimit.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <cmath>
#include <limits>

using nlohmann::json;

namespace {

constexpr double kAxisScale = 32767.0;
constexpr double kHotspotEpsilon = 0.001;
constexpr int kAckTimeoutCode = 10021;
constexpr std::int32_t kMobileBackKey = 158;
constexpr std::int32_t kMobileHomeKey = 172;
constexpr std::int32_t kGamepadGuideKey = 16;

// Truncates toward zero; values beyond the 32-bit range saturate instead of
// being undefined.
std::int32_t truncatedAxis(double value)
{
    const double scaled = std::trunc(value * kAxisScale);
    if (std::isnan(scaled))
        return 0;
    constexpr double low = std::numeric_limits<std::int32_t>::min();
    constexpr double high = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(scaled, low, high));
}

double numberOrZero(const json& message, std::string_view key)
{
    const json value = vrq_numberForKey(message, key, 0);
    return value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
}

std::string describeError(const VRQError& error)
{
    return error.toString();
}

// -value, kept in range for the one value whose negation is not.
std::int32_t negated(std::int32_t value)
{
    return static_cast<std::int32_t>(-static_cast<std::int64_t>(value));
}

} // namespace

VRQGameController::VRQGameController()
    : m_deliveries(vrq::PendingLimit::make("controller events for the host", vrq::PendingLimit::kMainDeliveries))
{
}

// MARK: - Accessors

std::shared_ptr<VRQGamePlayer> VRQGameController::weakPlayer() const
{
    std::lock_guard lock(m_mutex);
    return m_weakPlayer.lock();
}

void VRQGameController::setWeakPlayer(std::weak_ptr<VRQGamePlayer> player)
{
    std::lock_guard lock(m_mutex);
    m_weakPlayer = std::move(player);
}

std::shared_ptr<VRQGameControllerDelegate> VRQGameController::controlDelegate() const
{
    std::lock_guard lock(m_mutex);
    return m_controlDelegate.lock();
}

void VRQGameController::setControlDelegate(std::weak_ptr<VRQGameControllerDelegate> delegate)
{
    std::lock_guard lock(m_mutex);
    m_controlDelegate = std::move(delegate);
}

std::shared_ptr<VRQVirtualMouseCursor> VRQGameController::mouseCursor() const
{
    std::lock_guard lock(m_mutex);
    return m_mouseCursor;
}

void VRQGameController::setMouseCursor(std::shared_ptr<VRQVirtualMouseCursor> cursor)
{
    std::lock_guard lock(m_mutex);
    m_mouseCursor = std::move(cursor);
}

std::size_t VRQGameController::cursorImageCacheSize() const
{
    std::lock_guard lock(m_mutex);
    return m_cursorImageCache.size();
}

// MARK: - Outgoing input

void VRQGameController::send(const json& message)
{
    if (auto player = weakPlayer())
        player->sendKeycodeMessage(message);
}

void VRQGameController::sendKeycodeMessage(const json& message)
{
    send(message);
}

void VRQGameController::clickKeyboard(std::int32_t key, bool isDown)
{
    send({{"type", "keyboard"}, {"key", key}, {"down", isDown}});
}

void VRQGameController::remoteMobileBackClick()
{
    clickKeyboard(kMobileBackKey, true);
    clickKeyboard(kMobileBackKey, false);
}

void VRQGameController::remoteMobileHomeClick()
{
    clickKeyboard(kMobileHomeKey, true);
    clickKeyboard(kMobileHomeKey, false);
}

void VRQGameController::resetRemoteKeycode()
{
    send({{"type", "keys_clean"}});
}

void VRQGameController::clickGamepadKey(std::int32_t key, bool isDown)
{
    send({{"type", "gamepadkey"}, {"key", key}, {"down", isDown}});
}

void VRQGameController::turnJoyStick(double x, double y, bool isLeft)
{
    send({{"type", isLeft ? "axisleft" : "axisright"}, {"x", truncatedAxis(x)}, {"y", truncatedAxis(y)}});
}

void VRQGameController::enableVirtualGamepad(bool enable)
{
    VRQ_LOG_UPLOAD(1, "enableVirtualGamepad:%d", enable ? 1 : 0);
    if (!enable) {
        send({{"type", "gamepaddisconnect"}});
        return;
    }
    // The remote side takes a press of the guide key as the pad's arrival.
    send({{"type", "gamepadconnect"}});
    clickGamepadKey(kGamepadGuideKey, true);
    clickGamepadKey(kGamepadGuideKey, false);
}

void VRQGameController::mouseMoveTo(double x, double y)
{
    send({{"type", "mousemove_v2"}, {"x", x}, {"y", y}});
}

void VRQGameController::mouseDeltaMove(double x, double y)
{
    send({{"type", "mousedeltamove_v2"}, {"x", x}, {"y", y}});
}

// Only the left button goes on "ack": the remote side answers it with a report
// of the text field it hit. Right and middle go on "km".
void VRQGameController::clickMouseIsLeft(bool isLeft, bool isDown)
{
    send({{"type", isLeft ? "mouseleft" : "mouseright"}, {"down", isDown}});
}

void VRQGameController::clickMouseMiddleKey(bool isDown)
{
    send({{"type", "mousemiddle"}, {"down", isDown}});
}

void VRQGameController::mouseScroll(double delta)
{
    send({{"type", "mousescroll"}, {"delta", delta}});
}

void VRQGameController::setCursorShowMode(std::int64_t mode)
{
    VRQ_LOG_UPLOAD(1, "setCursorShowMode:%lld", static_cast<long long>(mode));
    send({{"type", "set_cursor"}, {"show", mode}});
    // The remote side redraws its cursor only when the mouse moves: nudge it
    // with the older relative-move type, which it expects here.
    send({{"type", "mousedeltamove"}, {"x", 1}, {"y", 0}});
}

// MARK: - Requests with a reply

void VRQGameController::asyncCheckRemoteCapsLock(IntResult callback)
{
    auto player = weakPlayer();
    if (!player)
        return;
    player->sendAckMessage({{"type", "capslock_state"}}, [callback](std::optional<VRQError> error, json data) {
        std::int32_t result = 0;
        if (error) {
            VRQ_LOG(2, "ack handle error:%s", describeError(*error).c_str());
            result = error->code == kAckTimeoutCode ? -1 : negated(error->code);
        } else {
            result = vrq_stringForKey(data, "state", std::string()) == "upper" ? 1 : 0;
        }
        if (callback)
            callback(result);
    });
}

void VRQGameController::asyncPasteText(const std::string& text, IntResult callback)
{
    auto player = weakPlayer();
    if (!player || text.empty())
        return;
    player->sendAckMessage({{"type", "paste"}, {"content", text}}, [callback](std::optional<VRQError> error, json) {
        std::int32_t result = 0;
        if (error) {
            VRQ_LOG_UPLOAD(2, "ack handle error:%s", describeError(*error).c_str());
            result = error->code == kAckTimeoutCode ? -2 : -1;
        }
        if (callback)
            callback(result);
    });
}

void VRQGameController::asyncAutoLogin(const std::string& userName, const std::string& password, IntResult finishBlk)
{
    if (userName.empty() || password.empty()) {
        if (finishBlk)
            finishBlk(-10);
        return;
    }
    auto player = weakPlayer();
    if (!player)
        return;
    const json message = {{"type", "auto_login"}, {"user_name", userName}, {"psw", password}, {"timeout", 10}};
    player->sendAckMessage(message, [finishBlk](std::optional<VRQError> error, json data) {
        std::int32_t result = 0;
        if (error) {
            VRQ_LOG(2, "ack handle error:%s", describeError(*error).c_str());
            result = error->code == kAckTimeoutCode ? -9 : negated(error->code);
        } else {
            result = negated(vrq_intForKey(data, "result", -4));
        }
        if (finishBlk)
            finishBlk(result);
    });
}

void VRQGameController::cancleAutoLogin()
{
    if (auto player = weakPlayer())
        player->sendAckMessage({{"type", "cancel_auto_login"}}, nullptr);
}

// MARK: - Server messages

void VRQGameController::notifyDelegate(std::function<void(VRQGameControllerDelegate&)> call)
{
    if (!m_deliveries->tryEnter())
        return;
    vrq::dispatchMainAsync([weak = weak_from_this(), call = std::move(call), deliveries = m_deliveries] {
        const vrq::PendingLimit::Leave leave(*deliveries);
        auto self = weak.lock();
        auto target = self ? self->controlDelegate() : nullptr;
        if (target)
            vrqCallHost("controller delegate", [&] { call(*target); });
    });
}

void VRQGameController::handleMouseCursorStateMsg(const json& message)
{
    const bool visible = vrq_stringForKey(message, "state", std::string()) == "showing";
    VRQ_LOG(1, "mouseCursorVisible:%d", visible ? 1 : 0);
    notifyDelegate([visible](VRQGameControllerDelegate& target) { target.onCursorVisibleChanged(visible); });
}

void VRQGameController::handleClickedTextFieldMsg(const json& message)
{
    long result = -1;
    if (vrq_stringForKey(message, "status", std::string()) == "disabled")
        result = 99;
    else if (vrq_boolForKey(message, "enable_auto_login", false))
        result = 1;
    else if (vrq_boolForKey(message, "hit_input", false))
        result = 0;
    VRQ_LOG(0, "click text field: %ld", result);
    if (result != -1)
        notifyDelegate([result](VRQGameControllerDelegate& target) { target.onClickedTextField(result); });
}

void VRQGameController::handleRemoteInputStatusMsg(const json& message)
{
    const auto status = vrq_stringForKey(message, "status", std::string());
    if (status != "enabled" && status != "disabled")
        return;
    const bool enabled = status == "enabled";
    notifyDelegate([enabled](VRQGameControllerDelegate& target) { target.onRemoteInputStatus(enabled); });
}

void VRQGameController::handleAutoLoginStatusMsg(const json& message)
{
    const std::int32_t status = vrq_intForKey(message, "status", 1);
    const std::string userId = vrq_stringForKey(message, "user_id", std::string("(null)")).value_or("");
    const std::string gameId = vrq_stringForKey(message, "game_id", std::string("(null)")).value_or("");
    VRQ_LOG(1, "auto_login:%d userId:%s gameId:%s", status, userId.c_str(), gameId.c_str());
    notifyDelegate([status](VRQGameControllerDelegate& target) { target.onAutoLoginFinish(status); });
}

// The server sends an image's bytes once and afterwards only its key; a
// "nack" for an unknown key asks for the bytes again.
void VRQGameController::handleMouseCursorImageMsg(const json& message)
{
    const std::string key = vrq_stringForKey(message, "data_key", std::string()).value_or("");
    std::optional<CursorImage> cursor = storeCursorImage(key, message);
    if (!cursor) {
        std::lock_guard lock(m_mutex);
        if (const auto found = m_cursorImageCache.find(key); found != m_cursorImageCache.end())
            cursor = found->second;
    }
    if (!cursor) {
        sendCursorReply("nack", key);
        VRQ_LOG(1, "lost cursor image data_key:%s", key.c_str());
        return;
    }
    const vrq::Rect frame = vrq::rectFromString(cursor->frame).value_or(vrq::Rect{});
    VRQ_LOG(0, "update cursor image frame:%s data_key:%s", cursor->frame.c_str(), key.c_str());
    notifyDelegate([image = cursor->image, frame](VRQGameControllerDelegate& target) {
        target.onCursorImageUpdated(image, frame);
    });
}

// Decodes and caches the image the message carries; nothing when it carries
// none, or bytes that are not an image.
std::optional<VRQGameController::CursorImage> VRQGameController::storeCursorImage(const std::string& key,
                                                                                 const json& message)
{
    const std::string data = vrq_stringForKey(message, "data", std::string()).value_or("");
    if (data.empty())
        return std::nullopt;
    const auto bytes = vrq::base64Decode(data);
    auto image = bytes ? vrq::Image::decode(*bytes) : std::nullopt;
    if (!image) {
        VRQ_LOG(2, "receive bad message %s", message.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
        return std::nullopt;
    }
    double hx = numberOrZero(message, "hotspotx_v2");
    double hy = numberOrZero(message, "hotspoty_v2");
    // The frame's origin is the offset from the pointer to the image's corner.
    if (hx > kHotspotEpsilon)
        hx = -hx;
    if (hy > kHotspotEpsilon)
        hy = -hy;
    const vrq::Rect frame{{hx, hy}, {numberOrZero(message, "width_v2"), numberOrZero(message, "height_v2")}};
    CursorImage cursor{std::make_shared<const vrq::Image>(std::move(*image)), vrq::stringFromRect(frame)};
    {
        std::lock_guard lock(m_mutex);
        if (m_cursorImageCache.size() >= kCursorImageCacheLimit) {
            VRQ_LOG(2, "cache cursor image too much.");
            m_cursorImageCache.clear();
        }
        m_cursorImageCache[key] = cursor;
    }
    sendCursorReply("ack", key);
    VRQ_LOG(1, "save cursor image data_key:%s", key.c_str());
    return cursor;
}

void VRQGameController::sendCursorReply(const char* type, const std::string& key)
{
    if (auto player = weakPlayer())
        player->sendMessage({{"type", type}, {"data_type", "mouse"}, {"data_key", key}}, "cd");
}
