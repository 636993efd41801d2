#pragma once

#include "vrq/core/VRQGamePlayer.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// "none", "inited", "playing", "reconnecting", "stopped" or the number.
std::string gameStatusName(VRQGameStatus status);

// One statistics sample of a running session, from the kit's session report
// and the player's video view: "fps", "rtt_ms", "bitrate_kbps",
// "packets_lost", "packets_received", "frame" ("640x360"), "frames_decoded",
// "status", "sei_total_ms", "decode_ms", "freeze_count", "freeze_ms" and,
// as the kit reports it to hosts, "report" and its text form "report_text".
// Main thread.
nlohmann::json sampleStatistics(const VRQGamePlayer& player);

// The sample as the statistics panel's lines: the report's text form, then
// the fps, the round trips, decoding, loss and freezes.
std::vector<std::string> statisticsLines(const nlohmann::json& sample);

// The sample as one readable line.
std::string describeStatistics(const nlohmann::json& sample);
