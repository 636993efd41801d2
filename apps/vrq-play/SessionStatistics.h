#pragma once

#include "vrq/core/VRQGamePlayer.h"

#include <nlohmann/json.hpp>

#include <string>

// "none", "inited", "playing", "reconnecting", "stopped" or the number.
std::string gameStatusName(VRQGameStatus status);

// One statistics sample of a running session, from the kit's session report
// and the player's video view: "fps", "rtt_ms", "bitrate_kbps",
// "packets_lost", "packets_received", "frame" ("640x360"), "frames_decoded",
// "status" and, as the kit reports it to hosts, "report". Main thread.
nlohmann::json sampleStatistics(const VRQGamePlayer& player);

// The sample as one readable line.
std::string describeStatistics(const nlohmann::json& sample);
