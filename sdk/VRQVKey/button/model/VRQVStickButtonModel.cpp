#include "vrq/VRQVKey/button/model/VRQVStickButtonModel.h"

const VRQModelClass& VRQVStickButtonModel::staticModelClass()
{
    using Self = VRQVStickButtonModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQVBaseButtonModel>(
        "VRQVStickButtonModel",
        {property("innerRadius", &Self::innerRadius), property("outerIconName", &Self::outerIconName),
         property("innerNormalIconName", &Self::innerNormalIconName),
         property("innerPressedIconName", &Self::innerPressedIconName)});
    return modelClass;
}

VRQSimpleJsonModel::KeyMapper VRQVStickButtonModel::keyMapper() const
{
    auto map = VRQVBaseButtonModel::keyMapper();
    map.insert({{"innerRadius", "inner_radius"},
                {"outerIconName", "outer_icon_name"},
                {"innerNormalIconName", "inner_normal_icon_name"},
                {"innerPressedIconName", "inner_pressed_icon_name"}});
    return map;
}
