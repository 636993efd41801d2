#pragma once

#include <string>

namespace vrqtest {

// The bytes of a real PNG file of that size (RGBA, a diagonal pattern).
std::string makePng(int width, int height);

} // namespace vrqtest
