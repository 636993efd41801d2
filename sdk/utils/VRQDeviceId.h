#pragma once

#include <string>

// The persistent device id, made once and kept in user defaults under
// "VRQSDK_DEVICE_ID". The monitor's records and the uploaded logs carry it.
std::string vrqDeviceID();
