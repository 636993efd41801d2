#pragma once

#include "vrq/platform/engine/RtcVideoFrame.h"

#include <filesystem>
#include <optional>
#include <string>

// Writes a decoded video frame (RGBA) as an 8-bit RGBA PNG file.
// Returns the reason when nothing usable was written.
std::optional<std::string> writeFramePng(const vrq::rtc::VideoFrame& frame, const std::filesystem::path& path);
