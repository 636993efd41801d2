#pragma once

#include "vrq/platform/views/Geometry.h"
#include "vrq/platform/views/Image.h"

#include <cstdint>
#include <memory>

// The remote side's input-related notifications, always on the main thread.
// The controller holds its delegate weakly. Every method is optional.
class VRQGameControllerDelegate {
public:
    virtual ~VRQGameControllerDelegate() = default;
    virtual void onCursorVisibleChanged(bool /*visible*/) {}
    // 0 text input hit, 1 auto-login field, 99 remote input disabled.
    virtual void onClickedTextField(std::int64_t /*result*/) {}
    virtual void onRemoteInputStatus(bool /*enabled*/) {}
    virtual void onAutoLoginFinish(std::int32_t /*status*/) {}
    // frame: the image's rectangle relative to the pointer's hotspot.
    virtual void onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& /*image*/, vrq::Rect /*frame*/) {}
};
