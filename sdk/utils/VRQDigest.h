#pragma once

#include <string>
#include <string_view>

// MD5 of a text as 32 lower-case hexadecimal digits. The text ends at its
// first zero byte, as a C string would.
std::string vrq_md5(std::string_view text);
