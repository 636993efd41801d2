#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/platform/views/VideoView.h"

namespace vrq {
class PanGestureRecognizer;
class PinchGestureRecognizer;
} // namespace vrq

// The view the remote game's video is drawn on. It keeps the latest decoded
// frame for a renderer and, when pinch is enabled, lets the user zoom the
// picture with two fingers (up to 3x) and move the zoomed picture with a
// two-finger drag, only through its transform; some of the picture always
// stays within the parent (moveInsets). Main thread, but for frames.
class VRQGameVideoView : public vrq::VideoView {
public:
    static constexpr double kMaxScale = 3.0;

    explicit VRQGameVideoView(vrq::Rect frame = {});

    double scaleValue() const { return m_scaleValue; }
    bool enablePinch() const { return m_enablePinch; }
    // On: adds a pinch and a two-finger pan recogniser, once. Off: removes
    // every recogniser of the view, whoever added it.
    void setEnablePinch(bool enable);
    vrq::EdgeInsets moveInsets() const { return m_moveInsets; }
    void setMoveInsets(vrq::EdgeInsets insets) { m_moveInsets = insets; }
    int videoOrientation() const { return m_videoOrientation; }
    void setVideoOrientation(int orientation) { m_videoOrientation = orientation; }
    // The identity transform and a scale of 1.
    void resetVideoViewFrame();

    // The recognisers' actions.
    void pinchView(vrq::PinchGestureRecognizer& recognizer);
    void onButtionMoved(vrq::PanGestureRecognizer& recognizer);

private:
    // How far the frame must move to keep part of the picture in the parent.
    vrq::Point reachabilityCorrection() const;

    double m_scaleValue = 1.0;
    bool m_enablePinch = false;
    vrq::EdgeInsets m_moveInsets{100, 50, 50, 100};
    int m_videoOrientation = 1;
    vrq::Point m_pinchLastPoint;
};
