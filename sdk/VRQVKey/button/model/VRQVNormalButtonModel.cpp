#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"

#include "vrq/utils/VRQLayoutHelpers.h"

const VRQModelClass& VRQVNormalButtonModel::staticModelClass()
{
    using Self = VRQVNormalButtonModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQVBaseButtonModel>(
        "VRQVNormalButtonModel",
        {property("clickModeStr", &Self::clickModeStr, &Self::setClickModeStr),
         property("normalViewModel", &Self::normalViewModel), property("pressedViewModel", &Self::pressedViewModel),
         property("clickMode", &Self::clickMode, &Self::setClickMode)});
    return modelClass;
}

VRQSimpleJsonModel::KeyMapper VRQVNormalButtonModel::keyMapper() const
{
    auto map = VRQVBaseButtonModel::keyMapper();
    map.insert({{"clickModeStr", "click_mode"}, {"normalViewModel", "normal_view"}, {"pressedViewModel", "pressed_view"}});
    return map;
}

void VRQVNormalButtonModel::setClickModeStr(std::optional<std::string> text)
{
    m_clickMode = text ? vrq_intValue(*text) : Hold;
    m_clickModeStr = std::move(text);
}

void VRQVNormalButtonModel::setClickMode(std::int32_t mode)
{
    m_clickMode = mode;
    m_clickModeStr = std::to_string(mode);
}
