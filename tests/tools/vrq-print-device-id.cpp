// Prints the kit's device id, so that tests can compare it across processes.
#include "vrq/monitor/VRQSDKMonitor.h"

#include <cstdio>

int main()
{
    std::printf("%s\n", VRQSDKMonitor::vrqDeviceID().c_str());
    return 0;
}
