#pragma once

// The kit's version, as its client session and metrics report it.
inline constexpr const char* VRQSDKVersion = "1.1.7.20";

// The 40-hex-digit commit the kit was built from (zeros outside a checkout).
const char* vrqCommitId();
