#include "vrq/VRQVKey/button/model/VRQVBaseButtonModel.h"

const VRQModelClass& VRQVBaseButtonModel::staticModelClass()
{
    using Self = VRQVBaseButtonModel;
    static const auto modelClass = VRQModelClass::of<Self, VRQSimpleJsonModel>(
        "VRQVBaseButtonModel", {property("key", &Self::key), property("top", &Self::top),
                                property("left", &Self::left), property("width", &Self::width),
                                property("height", &Self::height)});
    return modelClass;
}
