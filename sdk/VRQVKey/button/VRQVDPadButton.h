#pragma once

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVStickButtonView.h"

#include <cstdint>

// A direction pad: the touch's angle around the pad's centre selects up to
// two of four directions (bit 0 up, 1 right, 2 down, 3 left: the first four
// buttons of the model's list), and every change sends the released
// directions' up texts, then the pressed ones' down texts, in one message.
// A touch inside the inner radius selects nothing.
class VRQVDPadButton : public VRQVBaseButton {
public:
    VRQVDPadButton();
    static std::shared_ptr<VRQVBaseButton> initWithModel(std::shared_ptr<VRQVBaseButtonModel> model);

    // Also forgets the held directions: the first mask after a layout is
    // only recorded, not sent, and the remote side expects exactly that.
    void updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model) override;
    void onPressDown(double x, double y) override;
    void onMove(double x, double y) override;
    void onPressUp(double x, double y) override;

    // The directions of an offset from the centre (screen y grows downward).
    static std::int32_t calcPressedButtons(double sideX, double sideY);
    void sendMessage(std::int32_t buttons);

    double touchOriginX() const { return m_touchOriginX; }
    double touchOriginY() const { return m_touchOriginY; }
    std::int32_t lastButtons() const { return m_lastButtons; }
    const std::shared_ptr<VRQVStickButtonView>& buttonView() const { return m_buttonView; }

private:
    // The instruction text of a direction bit, or empty.
    std::string directionText(int bit, bool isDown) const;

    double m_touchOriginX = 0;
    double m_touchOriginY = 0;
    std::int32_t m_lastButtons = -1;
    std::shared_ptr<VRQVStickButtonView> m_buttonView;
};
