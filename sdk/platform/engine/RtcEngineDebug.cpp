#include "vrq/platform/engine/RtcPeerConnection.h"

#include <gst/gst.h>

namespace vrq::rtc {

void setEngineDebugLevel(int severity)
{
    static constexpr GstDebugLevel kLevels[] = {GST_LEVEL_LOG, GST_LEVEL_INFO, GST_LEVEL_WARNING, GST_LEVEL_ERROR,
                                                GST_LEVEL_NONE};
    const int index = severity < 0 ? 0 : severity > 4 ? 4 : severity;
    gst_debug_set_default_threshold(kLevels[index]);
}

} // namespace vrq::rtc
