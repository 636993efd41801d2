#pragma once

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVStickButtonView.h"

#include <cstdint>
#include <optional>
#include <string>

// An analogue stick ("stick_left", "stick_right"): every move of the finger
// sends the axis pair {"type":"axisleft","x":X,"y":Y} (X to the right, Y
// upward, both within ±32767, full at the rim), and the lift sends a short
// series that decays to (0, 0). Main thread only.
class VRQVStickButton : public VRQVBaseButton {
public:
    static constexpr std::int32_t kAxisMax = 32767;
    // Below this an axis value of the return series snaps to 0.
    static constexpr std::int32_t kSnapToZero = 600;

    VRQVStickButton();
    static std::shared_ptr<VRQVBaseButton> initWithModel(std::shared_ptr<VRQVBaseButtonModel> model);

    void updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model) override;
    void onPressDown(double x, double y) override;
    void onMove(double x, double y) override;
    void onPressUp(double x, double y) override;

    void sendInstruction(std::int32_t x, std::int32_t y);
    // The return series from the last pair sent: each step takes a third of
    // that pair off, values below 600 snap to 0, until both are 0.
    void damperToZero();

    double touchOriginX() const { return m_touchOriginX; }
    double touchOriginY() const { return m_touchOriginY; }
    std::int32_t lastX() const { return m_lastX; }
    std::int32_t lastY() const { return m_lastY; }
    const std::optional<std::string>& keyType() const { return m_keyType; }
    const std::shared_ptr<VRQVStickButtonView>& buttonView() const { return m_buttonView; }

private:
    std::string axisText(std::int32_t x, std::int32_t y) const;

    double m_touchOriginX = 0;
    double m_touchOriginY = 0;
    std::int32_t m_lastX = 0;
    std::int32_t m_lastY = 0;
    std::optional<std::string> m_keyType;
    std::shared_ptr<VRQVStickButtonView> m_buttonView;
};
