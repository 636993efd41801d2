#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

#include "vrq/platform/views/Geometry.h"

// Layout lengths and frames of the virtual gamepad, given as text relative to
// a reference length. Pure functions, safe from any thread.

// The decimal number at the start of a text, in single precision: leading
// white space is skipped, an optional sign, digits with an optional point and
// exponent are read and the rest ignored. No number gives 0; a magnitude
// beyond the float range gives an infinity, one too small gives 0.
float vrq_floatValue(std::string_view text);

// The whole number at the start of a text: leading white space is skipped, an
// optional sign and digits are read and the rest ignored. No number gives 0;
// beyond the 32-bit range the nearest end of it.
std::int32_t vrq_intValue(std::string_view text);

// A layout length against a reference length:
//   "0.5r" is relative: 0.5 times the reference;
//   "-20" (below -0.0001) counts back from the end: the reference minus 20;
//   "20" is absolute; an empty text or one without a number gives 0.
double getPointValue(std::string_view text, double reference);
double vrq_absoluteFloatValue(std::string_view text, double reference);

// A frame from a dictionary of layout strings "width", "height", "left",
// "top", "right", "bottom", "centerx", "centery" (numbers are ignored). Width
// and height are kept as computed; the position is floored. Of "left",
// "right" and "centerx" the last present wins, and likewise vertically.
vrq::Rect vrq_getFrameWithReferencenSize(const nlohmann::json& dictionary, vrq::Size reference);
