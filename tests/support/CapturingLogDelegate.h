#pragma once

#include "vrq/log/VRQLogDelegate.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vrqtest {

// Keeps every line the kit logs, for tests to search.
class CapturingLogDelegate : public VRQLogDelegate {
public:
    void logWithLevel(int level, const std::string& log) override
    {
        std::lock_guard lock(m_mutex);
        m_lines.emplace_back(level, log);
    }

    bool contains(const std::string& fragment) const
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [level, line] : m_lines)
            if (line.find(fragment) != std::string::npos)
                return true;
        return false;
    }

    std::vector<std::pair<int, std::string>> lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<int, std::string>> m_lines;
};

} // namespace vrqtest
