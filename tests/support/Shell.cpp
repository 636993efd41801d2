#include "support/Shell.h"

#include <array>
#include <cstdio>
#include <memory>

namespace vrqtest {

std::string runCommand(const std::string& command)
{
    std::string output;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe)
        return output;
    std::array<char, 4096> buffer{};
    std::size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0)
        output.append(buffer.data(), n);
    return output;
}

std::string shellQuote(const std::string& value)
{
    std::string quoted = "'";
    for (char c : value) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace vrqtest
