#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

// "km" messages as the server's input observer saw them arrive, in order.
// Recorded on the engine's threads, read on the main thread.
class ObservedInputs {
public:
    struct Arrival {
        nlohmann::json message; // null when the bytes were not JSON
        std::chrono::steady_clock::time_point time;
    };

    void record(const std::string& bytes, std::chrono::steady_clock::time_point time)
    {
        auto message = nlohmann::json::parse(bytes, nullptr, false);
        std::lock_guard lock(m_mutex);
        m_arrivals.push_back({message.is_discarded() ? nlohmann::json() : std::move(message), time});
    }

    // The arrivals whose "type" is the given one.
    std::vector<Arrival> ofType(const std::string& type) const
    {
        std::lock_guard lock(m_mutex);
        std::vector<Arrival> found;
        for (const auto& arrival : m_arrivals)
            if (arrival.message.is_object() && arrival.message.value("type", std::string()) == type)
                found.push_back(arrival);
        return found;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Arrival> m_arrivals; // guarded by m_mutex
};
