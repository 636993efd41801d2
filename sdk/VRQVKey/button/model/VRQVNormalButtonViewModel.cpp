#include "vrq/VRQVKey/button/model/VRQVNormalButtonViewModel.h"

const VRQModelClass& VRQVNormalButtonViewModel::staticModelClass()
{
    using Self = VRQVNormalButtonViewModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQVBaseButtonModel>(
        "VRQVNormalButtonViewModel",
        {property("bgColor", &Self::bgColor), property("iconFileName", &Self::iconFileName),
         property("textContent", &Self::textContent), property("textColor", &Self::textColor),
         property("textSize", &Self::textSize)});
    return modelClass;
}

VRQSimpleJsonModel::KeyMapper VRQVNormalButtonViewModel::keyMapper() const
{
    auto map = VRQVBaseButtonModel::keyMapper();
    map.insert({{"bgColor", "bgcolor"},
                {"iconFileName", "icon_name"},
                {"textContent", "text_content"},
                {"textColor", "text_color"},
                {"textSize", "text_size"}});
    return map;
}
