#include "vrq/utils/VRQSDKVersion.h"

const char* vrqCommitId()
{
    return VRQ_COMMIT_ID;
}
