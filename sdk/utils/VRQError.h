#pragma once

#include <map>
#include <string>

// An error as the kit reports it: a domain, a numeric code and, where one is
// known, a human-readable description.
struct VRQError {
    std::string domain;
    int code = 0;
    std::string description;
    // Named details, where the error carries some (for example "message").
    std::map<std::string, std::string> userInfo;

    std::string toString() const { return domain + " " + std::to_string(code) + (description.empty() ? "" : ": " + description); }
};
