#pragma once

// A message with one member taken out or set to another value, for the
// tables of malformed input.

#include <nlohmann/json.hpp>

namespace vrqtest {

inline nlohmann::json without(nlohmann::json message, const char* key)
{
    message.erase(key);
    return message;
}

inline nlohmann::json with(nlohmann::json message, const char* key, nlohmann::json value)
{
    message[key] = std::move(value);
    return message;
}

} // namespace vrqtest
