#pragma once

#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonViewModel.h"

#include <cstdint>
#include <memory>

// A plain button (mouse, keyboard and controller instructions): its click
// mode and its released and pressed looks.
class VRQVNormalButtonModel : public VRQVBaseButtonModel {
public:
    enum ClickMode : std::int32_t { Hold = 0, Click = 1, Toggle = 2 };

    std::shared_ptr<VRQVNormalButtonViewModel> normalViewModel;  // "normal_view"
    std::shared_ptr<VRQVNormalButtonViewModel> pressedViewModel; // "pressed_view"

    // "click_mode" as decimal text; setting either one sets the other (text
    // that is not a number is mode 0). A new model has mode 0 and no text.
    const std::optional<std::string>& clickModeStr() const { return m_clickModeStr; }
    void setClickModeStr(std::optional<std::string> text);
    const std::int32_t& clickMode() const { return m_clickMode; }
    void setClickMode(std::int32_t mode);

    static const VRQModelClass& staticModelClass();
    const VRQModelClass& modelClass() const override { return staticModelClass(); }
    KeyMapper keyMapper() const override;
    // The mode itself is not read from the layout: only its text is.
    bool propertyIsIgnored(const std::string& name) const override { return name == "clickMode"; }

private:
    std::optional<std::string> m_clickModeStr;
    std::int32_t m_clickMode = Hold;
};
