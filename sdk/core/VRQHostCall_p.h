#pragma once

#include "vrq/log/VRQLog.h"

#include <exception>

// Runs a host callback; one that throws is logged rather than let through the
// kit's own threads.
template <typename Fn>
void vrqCallHost(const char* what, Fn&& fn)
{
    try {
        fn();
    } catch (const std::exception& exception) {
        VRQ_LOG(3, "host callback %s threw: %s", what, exception.what());
    } catch (...) {
        VRQ_LOG(3, "host callback %s threw", what);
    }
}
