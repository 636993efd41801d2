#pragma once

#include "vrq/log/VRQLogDelegate.h"

#include <cstdio>
#include <string>

// Prints the kit's log lines on standard error, so that they never mix with
// the event lines on standard output. Called from any thread; one fputs per line.
class PrintingLogDelegate : public VRQLogDelegate {
public:
    void logWithLevel(int level, const std::string& log) override
    {
        std::fputs(("log[" + std::to_string(level) + "] " + log + "\n").c_str(), stderr);
    }
};
