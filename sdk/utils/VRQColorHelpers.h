#pragma once

#include <string_view>

#include "vrq/platform/views/Color.h"

// A colour from "#RRGGBB" or "#RRGGBBAA" (alpha 1 when absent). The first
// character is not checked. Any other length gives the fully transparent
// colour; a hexadecimal pair is read as far as it is valid, so "G0" is 0.
vrq::Color vrq_colorValue(std::string_view text);
