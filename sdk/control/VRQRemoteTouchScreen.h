#pragma once

#include "vrq/platform/views/View.h"

#include <nlohmann/json.hpp>

#include <map>
#include <memory>

class VRQGameController;

// A transparent multi-touch view over the video that forwards every
// finger's down, move and up to a remote game that takes touch input, as
// one "event_touch" message each, in this view's points with the view's
// size. Fingers get small ids, the lowest free one, reused after a lift.
// Main thread only.
class VRQRemoteTouchScreen : public vrq::View {
public:
    static constexpr int kMaxFingers = 10;

    // The controller is not owned: messages go nowhere once it is gone.
    VRQRemoteTouchScreen(vrq::Rect frame, std::weak_ptr<VRQGameController> controller);

    void setFrame(vrq::Rect frame) override;
    // The view's size to a tenth of a point, in single precision.
    float maxWidth() const { return m_maxWidth; }
    float maxHeight() const { return m_maxHeight; }

    void touchesBegan(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesMoved(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesEnded(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesCancelled(const vrq::TouchSet& touches, const vrq::Event& event) override;

    int mapTouchFingerId(const std::shared_ptr<vrq::Touch>& touch);

private:
    enum EventType : int { Down = 0, Move = 1, Up = 2 };

    void commonInit();
    void updateMaxSize();
    static nlohmann::json convert(double value, double extent, float maxValue);
    void sendTouch(const std::shared_ptr<vrq::Touch>& touch, EventType type);
    nlohmann::json convertX(double x) const;
    nlohmann::json convertY(double y) const;

    std::weak_ptr<VRQGameController> m_weakController;
    std::map<int, std::shared_ptr<vrq::Touch>> m_fingerIdMap;
    float m_maxWidth = 0;
    float m_maxHeight = 0;
};
