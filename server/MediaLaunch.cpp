#include "MediaLaunch.h"

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <algorithm>

namespace vrqserver {

std::string videoLaunchDescription(const VideoSettings& settings)
{
    const int fps = std::max(1, settings.fps);
    const int keyInterval = std::max(1, fps * settings.keyIntervalMs / 1000);
    // The ball's position follows the running time, so a dropped frame shows as a jump.
    return "videotestsrc is-live=true pattern=" + settings.pattern + " animation-mode=running-time motion=wavy" +
           " ! video/x-raw,width=" + std::to_string(settings.width) + ",height=" + std::to_string(settings.height) +
           ",framerate=" + std::to_string(fps) + "/1" +
           " ! videoconvert ! video/x-raw,format=I420 ! identity name=" + vrq::rtc::SendMedia::kCanvasElement +
           " ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max=" + std::to_string(keyInterval) +
           " bitrate=" + std::to_string(std::max(1, settings.bitrateKbps)) +
           " ! video/x-h264,profile=constrained-baseline,stream-format=byte-stream,alignment=au"
           " ! h264parse";
}

std::string audioLaunchDescription()
{
    return "audiotestsrc is-live=true wave=sine freq=440 volume=0.1"
           " ! audioconvert ! audioresample ! audio/x-raw,rate=48000,channels=2"
           " ! opusenc bitrate=64000 frame-size=20";
}

} // namespace vrqserver
