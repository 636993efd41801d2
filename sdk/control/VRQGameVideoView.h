#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/platform/views/VideoView.h"

// The view the remote game's video is drawn on. It keeps the latest decoded
// frame for a renderer; zoom and move settings are kept with it.
class VRQGameVideoView : public vrq::VideoView {
public:
    explicit VRQGameVideoView(vrq::Rect frame = {});

    double scaleValue() const { return m_scaleValue; }
    bool enablePinch() const { return m_enablePinch; }
    void setEnablePinch(bool enable) { m_enablePinch = enable; }
    vrq::EdgeInsets moveInsets() const { return m_moveInsets; }
    void setMoveInsets(vrq::EdgeInsets insets) { m_moveInsets = insets; }
    int videoOrientation() const { return m_videoOrientation; }
    void setVideoOrientation(int orientation) { m_videoOrientation = orientation; }
    void resetVideoViewFrame() { m_scaleValue = 1.0; }

private:
    double m_scaleValue = 1.0;
    bool m_enablePinch = false;
    vrq::EdgeInsets m_moveInsets{100, 50, 50, 100};
    int m_videoOrientation = 1;
};
