#pragma once

#include "FingerReplay.h"

#include <optional>
#include <string>

// What vrq-play was asked to do, from its command line.
struct PlayOptions {
    // Empty: start the bundled reference server in-process on bundledHost.
    std::string serverOrigin;
    std::string metricsOrigin;
    std::string bundledHost = "127.0.0.1";
    std::string experienceCode;
    int durationSeconds = 10;
    bool autoplay = false;
    // No window even where there is a display.
    bool headless = false;
    // The mouse stands for a finger on the kit's touch views.
    bool mouseAsTouch = false;
    bool help = false;
    // Finger gestures played into the window once the video shows.
    std::optional<FingerReplay> replay;
    bool jsonEvents = false;
    std::string snapshotPath;
    // The on-screen gamepad's layout text: "--layout pad|kbm|FILE", the
    // shipped game-controller layout with --autoplay; empty: no gamepad.
    std::string layoutText;

    bool usesBundledServer() const { return serverOrigin.empty(); }

    // Nothing, with a reason in *error, when an argument is unknown or malformed.
    static std::optional<PlayOptions> parse(int argc, char** argv, std::string* error);
    static std::string usage();
};
