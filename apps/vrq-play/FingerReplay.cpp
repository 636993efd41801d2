#include "FingerReplay.h"

#include <SDL_events.h>
#include <SDL_timer.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>

namespace {

constexpr std::size_t kMaxSteps = 100000;

std::optional<FingerReplay::Phase> phaseNamed(const std::string& name)
{
    if (name == "down")
        return FingerReplay::Phase::Down;
    if (name == "move")
        return FingerReplay::Phase::Move;
    if (name == "up")
        return FingerReplay::Phase::Up;
    return std::nullopt;
}

std::optional<FingerReplay::Step> parseStep(const std::string& line)
{
    const auto object = nlohmann::json::parse(line, nullptr, false);
    if (!object.is_object())
        return std::nullopt;
    const auto ms = object.find("ms");
    const auto finger = object.find("finger");
    const auto id = object.find("id");
    const auto x = object.find("x");
    const auto y = object.find("y");
    if (ms == object.end() || !ms->is_number_unsigned() || finger == object.end() || !finger->is_string() ||
        id == object.end() || !id->is_number_integer() || x == object.end() || !x->is_number() || y == object.end() ||
        !y->is_number())
        return std::nullopt;
    const auto phase = phaseNamed(finger->get<std::string>());
    const double fx = x->get<double>();
    const double fy = y->get<double>();
    if (!phase || fx < 0 || fx > 1 || fy < 0 || fy > 1)
        return std::nullopt;
    return FingerReplay::Step{std::chrono::milliseconds(ms->get<std::uint32_t>()), *phase, id->get<std::int64_t>(), fx, fy};
}

} // namespace

std::optional<FingerReplay> FingerReplay::read(const std::string& path, std::string* error)
{
    std::ifstream file(path);
    if (!file) {
        *error = "cannot read " + path;
        return std::nullopt;
    }
    FingerReplay replay;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        const auto step = parseStep(line);
        if (!step || replay.m_steps.size() >= kMaxSteps) {
            *error = path + ":" + std::to_string(number) + ": not a finger step";
            return std::nullopt;
        }
        replay.m_steps.push_back(*step);
    }
    std::stable_sort(replay.m_steps.begin(), replay.m_steps.end(),
                     [](const Step& a, const Step& b) { return a.at < b.at; });
    return replay;
}

void FingerReplay::start()
{
    m_start = std::chrono::steady_clock::now();
    m_next = 0;
}

bool FingerReplay::pushDue(std::uint32_t windowId)
{
    if (!m_start)
        return false;
    const auto elapsed = std::chrono::steady_clock::now() - *m_start;
    for (; m_next < m_steps.size() && m_steps[m_next].at <= elapsed; ++m_next) {
        const Step& step = m_steps[m_next];
        SDL_Event event{};
        event.type = step.phase == Phase::Down ? SDL_FINGERDOWN : step.phase == Phase::Move ? SDL_FINGERMOTION : SDL_FINGERUP;
        event.tfinger.timestamp = SDL_GetTicks();
        event.tfinger.touchId = 1;
        event.tfinger.fingerId = step.finger;
        event.tfinger.x = static_cast<float>(step.x);
        event.tfinger.y = static_cast<float>(step.y);
        event.tfinger.pressure = step.phase == Phase::Up ? 0.0f : 1.0f;
        event.tfinger.windowID = windowId;
        SDL_PushEvent(&event);
    }
    return m_next >= m_steps.size();
}
