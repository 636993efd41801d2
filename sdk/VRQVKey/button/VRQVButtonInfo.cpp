#include "vrq/VRQVKey/button/VRQVButtonInfo.h"

#include "vrq/VRQVKey/button/VRQVNormalButton.h"
#include "vrq/VRQVKey/button/model/VRQVNormalButtonModel.h"

VRQVButtonInfo VRQVButtonInfo::buttonInfoWithDown(std::string down, std::string up, bool isXBox)
{
    return buttonInfoWithDown(std::move(down), std::move(up), VRQVNormalButtonModel::staticModelClass(),
                              &VRQVNormalButton::initWithModel, isXBox);
}

VRQVButtonInfo VRQVButtonInfo::buttonInfoWithDown(std::string down, std::string up, const VRQModelClass& modClass,
                                                  ButtonClass btnClass, bool isXBox)
{
    return VRQVButtonInfo{std::move(down), std::move(up), &modClass, btnClass, isXBox};
}
