#include "EventLog.h"

#include <algorithm>
#include <cstdio>

void EventLog::emit(const std::string& event, const nlohmann::json& data, const std::string& text)
{
    std::string name = event;
    if (!m_json)
        std::replace(name.begin(), name.end(), '_', ' ');
    std::string line;
    if (m_json)
        line = nlohmann::json{{"event", event}, {"data", data}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    else if (!text.empty())
        line = name + ": " + text;
    else if (data.empty())
        line = name;
    else
        line = name + ": " + data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::lock_guard lock(m_mutex);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}
