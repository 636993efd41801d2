#pragma once

#include "BenchChildProcess.h"

#include <chrono>
#include <string>
#include <vector>

// A vrq-game-server process on its own loopback address. Sessions are kept
// without heartbeats (--idle-timeout 0): the bare receiver sends none. Extra
// options come last, so they override these.
class ServerProcess {
public:
    ServerProcess(const std::string& host, int width, int height, int fps, const std::vector<std::string>& extra = {})
        : m_process(arguments(host, width, height, fps, extra))
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (m_process.started() && m_origin.empty()) {
            const auto line = m_process.readLine(deadline);
            if (!line)
                break;
            if (const auto at = line->find("http://"); at != std::string::npos)
                m_origin = line->substr(at, line->find_first_of(' ', at) - at);
        }
    }
    const std::string& origin() const { return m_origin; }
    pid_t pid() const { return m_process.pid(); }

private:
    static std::vector<std::string> arguments(const std::string& host, int width, int height, int fps,
                                              const std::vector<std::string>& extra)
    {
        std::vector<std::string> all = {VRQ_GAME_SERVER, "--host", host, "--width", std::to_string(width), "--height",
                                        std::to_string(height), "--fps", std::to_string(fps), "--bitrate", "8000",
                                        "--idle-timeout", "0"};
        all.insert(all.end(), extra.begin(), extra.end());
        return all;
    }

    ChildProcess m_process;
    std::string m_origin;
};

