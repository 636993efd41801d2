#pragma once

#include <string>

// An error as the kit reports it: a domain, a numeric code and, where one is
// known, a human-readable description.
struct VRQError {
    std::string domain;
    int code = 0;
    std::string description;

    std::string toString() const { return domain + " " + std::to_string(code) + (description.empty() ? "" : ": " + description); }
};
