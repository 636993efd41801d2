#pragma once

// Helpers for tests that run the aiortc answerer script as a separate process.

#include "support/ChildProcess.h"
#include "support/Shell.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace vrqtest::aiortc {

inline constexpr const char* kPython = "/usr/bin/python3";

inline std::string peerScript()
{
    return (std::filesystem::path(__FILE__).parent_path() / "aiortc_answerer.py").string();
}

// Whether Debian's aiortc (and PyAV, for H.264) can be imported.
inline bool imports()
{
    return runCommand(std::string(kPython) + " -c 'import aiortc, av' >/dev/null 2>&1; echo $?") == "0\n";
}

// The peer's JSON event lines of one kind, in order.
inline std::vector<nlohmann::json> eventsOf(const ChildProcess& peer, const std::string& name)
{
    std::vector<nlohmann::json> events;
    for (const auto& line : peer.lines()) {
        nlohmann::json event = nlohmann::json::parse(line, nullptr, false);
        if (event.is_object() && event["event"] == name)
            events.push_back(std::move(event));
    }
    return events;
}

} // namespace vrqtest::aiortc
