#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/platform/views/View.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

class VRQGameController;

namespace vrq {
class Image;
class ImageView;
class Timer;
class Touch;
} // namespace vrq

// A transparent view over the video that turns touches into the remote
// game's mouse: absolute moves, relative moves and button presses on the
// remote 8192 x 8192 grid, measured against this view's parent. It draws its
// own small cursor image.
// Touch modes: 0 absolute (the finger is the pointer; touch presses, lift
// releases), 1 touchpad (the finger moves the pointer by its motion times the
// sensitivity; a tap clicks; 0.5 s held presses for a drag), 2 move only.
// First-person mode (the remote cursor hidden) overrides them all and sends
// relative moves only. Main thread only.
class VRQVirtualMouseCursor : public vrq::View {
public:
    static constexpr double kGridSize = 8192;
    static constexpr double kMoveMargin = 10;
    static constexpr std::chrono::milliseconds kLongPress{500};

    // The controller is not owned: input goes nowhere once it is gone.
    VRQVirtualMouseCursor(vrq::Rect frame, std::weak_ptr<VRQGameController> controller);
    // A plain default cursor: keeps none of its arguments.
    static std::shared_ptr<VRQVirtualMouseCursor> initWithConfig(const nlohmann::json& config, vrq::Size parentSize,
                                                                 std::weak_ptr<VRQGameController> controller);

    void setVideoSize(vrq::Size size);
    void setCursorTouchMode(int mode);
    void setCursorIsShow(bool show);
    void setCursorSensitive(double sensitivity);
    void setClickTypeIsLeft(bool isLeft);
    // image with its frame in grid units (the frame's origin is the negated hotspot).
    void setCursorImage(std::shared_ptr<const vrq::Image> image, vrq::Rect remoteFrame);
    // A finger move by (dx, dy) points from the last finger position: lets other
    // input sources drive the cursor.
    void moveCursorWithDiffX(double dx, double dy);

    void touchesBegan(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesMoved(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesEnded(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesCancelled(const vrq::TouchSet& touches, const vrq::Event& event) override;

    int touchMode() const { return m_touchMode; }
    double sensitivity() const { return m_sensitivity; }
    bool remoteIsShow() const { return m_remoteIsShow; }
    bool fpsControlModel() const { return m_fpsControlModel; }
    bool sendLeftClick() const { return m_sendLeftClick; }
    vrq::Size videoSize() const { return m_videoSize; }
    const std::shared_ptr<vrq::View>& cursorView() const { return m_cursorView; }
    const std::shared_ptr<vrq::ImageView>& cursorImageView() const { return m_cursorImageView; }

    // The grid value of a length in the parent's points: rounded down when
    // positive, toward zero otherwise; a positive length up to 0.001 rounds
    // up (kept as the remote side expects). Nothing without a sized parent.
    std::optional<double> convertX(double value) const;
    std::optional<double> convertY(double value) const;

private:
    enum TouchMode : int { Absolute = 0, Touchpad = 1, MoveOnly = 2 };

    bool isAbsolute() const { return m_touchMode == Absolute && !m_fpsControlModel; }
    bool sendsButtons() const { return m_touchMode != MoveOnly && !m_fpsControlModel; }
    vrq::Size parentSize() const;
    vrq::Point locationInParent(const vrq::Touch& touch) const;
    void sendMoveMessageX(double x, double y);
    void sendButton(bool isDown);
    void placeCursor(vrq::Point origin);
    void pressDown(vrq::Point point);
    void move(vrq::Point point);
    void pressUp(vrq::Point point);
    void startLongClickTimer();
    void cancelLongClickTimer();
    void longClick();
    std::shared_ptr<VRQGameController> controller() const { return m_weakController.lock(); }

    int m_touchMode = Absolute;
    double m_sensitivity = 1.0;
    bool m_remoteIsShow = false;
    bool m_fpsControlModel = true;
    bool m_sendLeftClick = true;
    vrq::Size m_videoSize;
    double m_lastFingerX = 0;
    double m_lastFingerY = 0;
    bool m_isLongClick = false;
    bool m_hasMoved = false;
    std::shared_ptr<vrq::Timer> m_longClickTimer;
    std::shared_ptr<vrq::View> m_cursorView;
    std::shared_ptr<vrq::ImageView> m_cursorImageView;
    std::weak_ptr<VRQGameController> m_weakController;
    std::weak_ptr<vrq::Touch> m_validTouch;
};
