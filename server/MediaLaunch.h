#pragma once

#include <string>

namespace vrqserver {

// What the game scene looks like on the wire.
struct VideoSettings {
    int width = 640;
    int height = 360;
    int fps = 30;
    int bitrateKbps = 2500;
    int keyIntervalMs = 1000; // a keyframe at least this often, so a late decoder recovers quickly
    std::string pattern = "ball"; // a videotestsrc pattern; "ball" moves
};

// GStreamer launch descriptions for the engine's sending branches: a live test
// scene encoded by x264 for low latency (no B-frames, no look-ahead,
// constrained baseline as the client offers), with the engine's canvas
// element on the raw I420 frames, and a live tone in Opus.
std::string videoLaunchDescription(const VideoSettings& settings);
std::string audioLaunchDescription();

} // namespace vrqserver
