#pragma once

#include "vrq/platform/engine/RtcVideoFrame.h"

#include <filesystem>
#include <optional>
#include <string>

#include <cstdint>
#include <vector>

// Writes an 8-bit RGBA picture, tightly packed rows, as a PNG file.
// Returns the reason when nothing usable was written.
std::optional<std::string> writeRgbaPng(int width, int height, const std::vector<std::uint8_t>& rgba,
                                        const std::filesystem::path& path);

// Writes a decoded video frame (RGBA) as an 8-bit RGBA PNG file.
// Returns the reason when nothing usable was written.
std::optional<std::string> writeFramePng(const vrq::rtc::VideoFrame& frame, const std::filesystem::path& path);
