#pragma once

#include <string>

namespace vrqtest {

// Runs a shell command and returns what it printed on standard output.
std::string runCommand(const std::string& command);
// Quotes a value for a POSIX shell.
std::string shellQuote(const std::string& value);

} // namespace vrqtest
