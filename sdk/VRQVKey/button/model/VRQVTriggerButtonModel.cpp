#include "vrq/VRQVKey/button/model/VRQVTriggerButtonModel.h"

const VRQModelClass& VRQVTriggerButtonModel::staticModelClass()
{
    using Self = VRQVTriggerButtonModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQVNormalButtonModel>(
        "VRQVTriggerButtonModel", {property("maxValue", &Self::maxValue), property("damperStep", &Self::damperStep)});
    return modelClass;
}

VRQSimpleJsonModel::KeyMapper VRQVTriggerButtonModel::keyMapper() const
{
    auto map = VRQVNormalButtonModel::keyMapper();
    map.insert({{"maxValue", "max_value"}, {"damperStep", "damper_step"}});
    return map;
}
