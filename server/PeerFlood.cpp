#include "PeerFlood.h"

#include "GameSession.h"

#include <httplib.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace vrqserver {

namespace {

using Clock = std::chrono::steady_clock;

// How often the flood wakes up to send what is due.
constexpr std::chrono::milliseconds kTick{1};

std::optional<long long> numberParam(const httplib::Request& request, const char* name)
{
    const std::string text = request.get_param_value(name);
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0')
        return std::nullopt;
    return value;
}

std::vector<std::string> splitLabels(const std::string& text)
{
    std::vector<std::string> labels;
    std::size_t begin = 0;
    while (begin <= text.size()) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        if (comma > begin)
            labels.push_back(text.substr(begin, comma - begin));
        begin = comma + 1;
    }
    return labels;
}

} // namespace

PeerFlood::PeerFlood(std::function<std::shared_ptr<GameSession>()> latestSession)
    : m_latestSession(std::move(latestSession))
{
}

PeerFlood::~PeerFlood()
{
    stop();
}

std::string PeerFlood::message(const std::string& label, std::size_t n)
{
    if (label == "sv")
        return nlohmann::json{{"type", "archive_load_status"}, {"data", {{"status", 0}, {"n", n}}}}.dump();
    if (label == "km")
        return nlohmann::json{{"cpu_usage", static_cast<double>(n % 100) / 100.0},
                              {"gpu_usage", std::to_string(n % 100) + "%"},
                              {"screen_width", 1280},
                              {"screen_height", 720},
                              {"n", n}}
            .dump();
    return nlohmann::json{{"n", n}}.dump();
}

bool PeerFlood::start(Plan plan)
{
    if (plan.labels.empty() || plan.messagesPerSecond <= 0 || plan.messagesPerSecond > kMaxRate
        || plan.duration <= std::chrono::milliseconds(0) || plan.duration > kMaxDuration)
        return false;
    std::lock_guard control(m_controlMutex);
    auto session = m_latestSession ? m_latestSession() : nullptr;
    if (!session || session->isClosed())
        return false;
    stop();
    std::lock_guard lock(m_mutex);
    m_stopRequested = false;
    m_progress = Progress{};
    m_progress.running = true;
    m_thread = std::thread([this, weak = std::weak_ptr<GameSession>(session), plan = std::move(plan)] { run(weak, plan); });
    return true;
}

void PeerFlood::run(std::weak_ptr<GameSession> weak, Plan plan)
{
    const auto begin = Clock::now();
    const auto total = static_cast<std::size_t>(static_cast<long long>(plan.messagesPerSecond) * plan.duration.count() / 1000);
    std::size_t next = 0;
    for (;;) {
        const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
        const auto due = std::min(total, static_cast<std::size_t>(static_cast<long long>(plan.messagesPerSecond) * elapsed / 1000000));
        std::map<std::string, std::size_t> sentOn;
        std::size_t failed = 0;
        if (auto session = weak.lock()) {
            for (; next < due; ++next) {
                const std::string& label = plan.labels[next % plan.labels.size()];
                if (session->send(label, message(label, next)))
                    ++sentOn[label];
                else
                    ++failed;
            }
        } else {
            failed = due - next; // the session is gone: what was due cannot be sent
            next = due;
        }
        std::unique_lock lock(m_mutex);
        for (const auto& [label, count] : sentOn) {
            m_progress.sentOn[label] += count;
            m_progress.sent += count;
        }
        m_progress.failed += failed;
        if (next >= total || m_stopRequested)
            break;
        m_changed.wait_for(lock, kTick, [this] { return m_stopRequested; });
    }
    std::lock_guard lock(m_mutex);
    m_progress.running = false;
    m_changed.notify_all();
}

PeerFlood::Progress PeerFlood::progress() const
{
    std::lock_guard lock(m_mutex);
    return m_progress;
}

bool PeerFlood::waitUntilFinished(std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [this] { return !m_progress.running; });
}

void PeerFlood::stop()
{
    std::thread thread;
    {
        std::lock_guard lock(m_mutex);
        m_stopRequested = true;
        thread = std::move(m_thread);
    }
    m_changed.notify_all();
    if (thread.joinable())
        thread.join();
}

void PeerFlood::install(httplib::Server& server)
{
    server.Post("/control/flood", [this](const httplib::Request& request, httplib::Response& response) {
        const auto rate = numberParam(request, "rate");
        const auto ms = numberParam(request, "ms");
        Plan plan;
        if (request.has_param("labels"))
            plan.labels = splitLabels(request.get_param_value("labels"));
        const bool valid = rate && ms && *rate > 0 && *rate <= kMaxRate && *ms > 0 && *ms <= kMaxDuration.count()
                           && !plan.labels.empty();
        int code = 400;
        if (valid) {
            plan.messagesPerSecond = static_cast<int>(*rate);
            plan.duration = std::chrono::milliseconds(*ms);
            code = start(std::move(plan)) ? 0 : 404;
        }
        response.status = code == 0 ? 200 : code;
        response.set_content(nlohmann::json{{"code", code}}.dump(), "application/json");
    });
    server.Get("/control/flood", [this](const httplib::Request&, httplib::Response& response) {
        const auto now = progress();
        response.set_content(nlohmann::json{{"sent", now.sent}, {"sent_on", now.sentOn}, {"failed", now.failed}, {"running", now.running}}.dump(),
                             "application/json");
    });
}

} // namespace vrqserver
