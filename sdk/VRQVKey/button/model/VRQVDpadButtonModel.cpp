#include "vrq/VRQVKey/button/model/VRQVDpadButtonModel.h"

const VRQModelClass& VRQVDpadButtonModel::staticModelClass()
{
    using Self = VRQVDpadButtonModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQVBaseButtonModel>(
        "VRQVDpadButtonModel",
        {property("innerRadius", &Self::innerRadius), property("textColor", &Self::textColor),
         property("textSize", &Self::textSize), property("outerIconName", &Self::outerIconName),
         property("innerNormalIconName", &Self::innerNormalIconName),
         property("innerPressedIconName", &Self::innerPressedIconName), property("touchMode", &Self::touchMode),
         property("buttonList", &Self::buttonList)});
    return modelClass;
}

VRQSimpleJsonModel::KeyMapper VRQVDpadButtonModel::keyMapper() const
{
    auto map = VRQVBaseButtonModel::keyMapper();
    map.insert({{"innerRadius", "inner_radius"},
                {"textColor", "text_color"},
                {"textSize", "text_size"},
                {"outerIconName", "outer_icon_name"},
                {"innerNormalIconName", "inner_normal_icon_name"},
                {"innerPressedIconName", "inner_pressed_icon_name"},
                {"touchMode", "touch_mode"},
                {"buttonList", "button_list"}});
    return map;
}
