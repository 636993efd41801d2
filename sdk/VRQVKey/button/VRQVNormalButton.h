#pragma once

#include "vrq/VRQVKey/button/VRQVBaseButton.h"
#include "vrq/VRQVKey/button/VRQVNormalButtonView.h"

#include <cstdint>

class VRQVNormalButtonModel;

// A button that sends its instruction's fixed texts, by its click mode:
// 0 hold (down on press, up on release), 1 click (down and up on press),
// 2 toggle (each press alternates down and up). Any other mode sends nothing.
class VRQVNormalButton : public VRQVBaseButton {
public:
    enum Status : int { Released = 0, Pressed = 1 };

    VRQVNormalButton();
    static std::shared_ptr<VRQVBaseButton> initWithModel(std::shared_ptr<VRQVBaseButtonModel> model);

    void updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model) override;
    void onPressDown(double x, double y) override;
    void onPressUp(double x, double y) override;

    std::int32_t clickModel() const { return m_clickModel; }
    int buttonStatus() const { return m_buttonStatus; }
    const std::shared_ptr<VRQVNormalButtonView>& buttonView() const { return m_buttonView; }

protected:
    // Sends the instruction's down or up text, when it has one.
    virtual void sendClickInstruction(bool isDown);
    const VRQVNormalButtonModel* normalModel() const;

private:
    void setButtonStatus(int status);

    std::int32_t m_clickModel = 0;
    int m_buttonStatus = Released;
    std::shared_ptr<VRQVNormalButtonView> m_buttonView;
};
