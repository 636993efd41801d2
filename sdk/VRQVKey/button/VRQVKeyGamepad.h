#pragma once

#include "vrq/VRQVKey/button/VRQVBaseButtonDelegate.h"
#include "vrq/platform/views/View.h"

#include <memory>
#include <string_view>
#include <vector>

class VRQGameController;
class VRQVBaseButton;
class VRQVBaseButtonModel;

// The on-screen gamepad: a transparent view over the game video holding the
// buttons of a layout, later ones on top. It lays them out against its own
// size when its width changes, and passes their messages to the game
// controller unchanged. Touches between buttons fall through to the views
// beneath. Main thread only, except sendVKeyMessage, which a trigger calls
// from its own queue.
class VRQVKeyGamepad : public vrq::View, public VRQVBaseButtonDelegate {
public:
    // The controller is not owned: messages go nowhere once it is gone.
    VRQVKeyGamepad(vrq::Rect frame, std::weak_ptr<VRQGameController> controller);
    static std::shared_ptr<VRQVKeyGamepad> initWithController(std::weak_ptr<VRQGameController> controller);
    static std::shared_ptr<VRQVKeyGamepad> initWithFrame(vrq::Rect frame, std::weak_ptr<VRQGameController> controller);

    // Replaces the buttons with those of layout text; text that does not
    // parse leaves the gamepad empty.
    void showKeyGamepad(std::string_view layout);
    void loadModelList(std::vector<std::shared_ptr<VRQVBaseButtonModel>> models);
    // Whether any button is a game-controller control, so that the host
    // connects a virtual controller first.
    bool needConnected() const;
    void layoutSubButtons();

    void sendVKeyMessage(const nlohmann::json& message) override;

    vrq::View* hitTest(vrq::Point point) override;
    void didMoveToSuperview() override;
    void layoutSubviews() override;

    const std::vector<std::shared_ptr<VRQVBaseButtonModel>>& modelList() const { return m_modelList; }
    const std::vector<std::shared_ptr<VRQVBaseButton>>& buttonList() const { return m_buttonList; }
    double parentWidth() const { return m_parentWidth; }
    bool hasGamepadButton() const { return m_hasGamepadButton; }

private:
    // Lays the buttons out again when the width changed since the last time.
    void placeIfWidthChanged();

    const std::weak_ptr<VRQGameController> m_weakController;
    std::vector<std::shared_ptr<VRQVBaseButtonModel>> m_modelList;
    std::vector<std::shared_ptr<VRQVBaseButton>> m_buttonList;
    double m_parentWidth = 0;
    bool m_hasGamepadButton = false;
};
