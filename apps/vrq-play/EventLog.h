#pragma once

#include <nlohmann/json.hpp>

#include <mutex>
#include <string>

// Prints what happens in a play session on standard output: as one JSON object
// per line ({"event": NAME, "data": {...}}) for tools, or as "NAME: text" for
// people (underscores in names read as spaces). Thread-safe; each event is
// one whole line.
class EventLog {
public:
    explicit EventLog(bool json) : m_json(json) {}

    // text is the readable form; when empty, the data's JSON is printed instead.
    void emit(const std::string& event, const nlohmann::json& data = nlohmann::json::object(),
              const std::string& text = {});

private:
    const bool m_json;
    std::mutex m_mutex;
};
