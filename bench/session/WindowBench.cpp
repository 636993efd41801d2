// vrq-play's window against its headless self, both receiving the reference
// server's 1080p60 stream: the processor time the window adds, how long a
// decoded frame takes to reach the screen, and how many decoded frames are
// shown. The window runs on an X server of the benchmark's own (Xvfb), where
// SDL draws with Mesa's software rasteriser or, with SDL_RENDER_DRIVER=software,
// with its own software renderer.
#include "BenchChildProcess.h"
#include "BenchFigures.h"
#include "BenchServerProcess.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

namespace {

constexpr auto kWarmUp = 4s;
constexpr auto kMeasured = 12s;
constexpr int kDurationSeconds = 20;

// Processor seconds a process has spent so far (user and system).
double cpuSecondsOf(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::stringstream content;
    content << stat.rdbuf();
    const std::string text = content.str();
    const auto afterName = text.rfind(')');
    if (afterName == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(afterName + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14)
            user = std::stoull(field);
        if (i == 15)
            system = std::stoull(field);
    }
    return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

struct Run {
    double appPercent = 0;  // of one core, over the measured span
    double xPercent = 0;    // the X server's, over the same span
    double serverPercent = 0; // the game server's (it encodes the stream on the same machine)
    json window;            // the summary's window figures
    bool played = false;
};

// One vrq-play run against the server; the X server's pid is measured too when there is one.
Run play(const ServerProcess& server, const std::vector<std::string>& environment, pid_t xServer)
{
    std::vector<std::string> command = {"/usr/bin/env"};
    command.insert(command.end(), environment.begin(), environment.end());
    for (const char* argument : {VRQ_PLAY, "--server"})
        command.emplace_back(argument);
    command.push_back(server.origin());
    for (const char* argument : {"--duration", "20", "--events", "json"})
        command.emplace_back(argument);
    if (xServer == 0)
        command.emplace_back("--headless");
    ChildProcess app(command);
    Run run;
    const auto deadline = Clock::now() + std::chrono::seconds(kDurationSeconds + 30);
    std::optional<Clock::time_point> firstFrame;
    double appStart = 0, xStart = 0, serverStart = 0;
    bool measured = false;
    while (const auto line = app.readLine(deadline)) {
        const json event = json::parse(*line, nullptr, false);
        if (!event.is_object())
            continue;
        if (event.value("event", "") == "first_frame")
            firstFrame = Clock::now();
        if (firstFrame && !measured && Clock::now() >= *firstFrame + kWarmUp) {
            appStart = cpuSecondsOf(app.pid());
            xStart = xServer ? cpuSecondsOf(xServer) : 0;
            serverStart = cpuSecondsOf(server.pid());
            std::this_thread::sleep_for(kMeasured);
            const double seconds = std::chrono::duration<double>(kMeasured).count();
            run.appPercent = 100 * (cpuSecondsOf(app.pid()) - appStart) / seconds;
            run.xPercent = xServer ? 100 * (cpuSecondsOf(xServer) - xStart) / seconds : 0;
            run.serverPercent = 100 * (cpuSecondsOf(server.pid()) - serverStart) / seconds;
            measured = true;
        }
        if (event.value("event", "") == "summary") {
            run.window = event["data"].value("window", json::object());
            run.played = event["data"].value("played", false) && measured;
        }
    }
    return run;
}

// An Xvfb of 1280 x 720 on a display it picks: its display name and process.
struct XServer {
    XServer()
        : process({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "1280x720x24", "-nolisten", "tcp", "-noreset"})
    {
        if (const auto number = process.readLine(Clock::now() + 15s))
            display = ":" + *number;
    }
    ChildProcess process;
    std::string display;
};

void report(const char* renderer, const Run& windowed, const Run& headless)
{
    std::printf("renderer: %s (%s)\n", renderer, windowed.window.value("renderer", "?").c_str());
    printRatio("CPU at 1080p60, window 1280x720", "%", "window", windowed.appPercent, "headless", headless.appPercent);
    printRatio("  the same plus the X server's", "%", "window", windowed.appPercent + windowed.xPercent, "headless",
               headless.appPercent);
    printRatio("  the game server's meanwhile (2 cores in all)", "%", "window", windowed.serverPercent, "headless",
               headless.serverPercent);
    printRatio("decoded to presented latency p50", "ms", "window", windowed.window.value("latency_p50_ms", 0.0), "target", 4);
    printRatio("decoded to presented latency p99", "ms", "window", windowed.window.value("latency_p99_ms", 0.0), "target", 12);
    printRatio("  of which the window's own drawing, p50", "ms", "window", windowed.window.value("draw_p50_ms", 0.0), "target", 4);
    printRatio("frames presented against decoded", "frames", "shown", windowed.window.value("frames_presented", 0.0),
               "decoded", windowed.window.value("frames_decoded", 0.0));
}

} // namespace

int main()
{
    ServerProcess server("127.0.0.1", 1920, 1080, 60);
    XServer x;
    if (server.origin().empty() || x.display.empty()) {
        std::printf("window benchmark skipped: %s\n", server.origin().empty() ? "the game server did not start" : "no X server (Xvfb)");
        return 0;
    }
    const Run headless = play(server, {"-u", "DISPLAY"}, 0);
    const Run accelerated = play(server, {"DISPLAY=" + x.display}, x.process.pid());
    const Run software = play(server, {"DISPLAY=" + x.display, "SDL_RENDER_DRIVER=software"}, x.process.pid());
    if (!headless.played || !accelerated.played || !software.played) {
        std::printf("window benchmark failed: a run did not play\n");
        return 1;
    }
    report("SDL's choice", accelerated, headless);
    report("SDL's software renderer", software, headless);
    return 0;
}
