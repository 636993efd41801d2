#include "vrq/utils/VRQColorHelpers.h"

namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

double component(std::string_view pair)
{
    int value = 0;
    for (char c : pair) {
        const int digit = hexDigit(c);
        if (digit < 0)
            break;
        value = value * 16 + digit;
    }
    return value / 255.0;
}

} // namespace

vrq::Color vrq_colorValue(std::string_view text)
{
    if (text.size() != 7 && text.size() != 9)
        return {};
    const double alpha = text.size() == 9 ? component(text.substr(7, 2)) : 1.0;
    return {component(text.substr(1, 2)), component(text.substr(3, 2)), component(text.substr(5, 2)), alpha};
}
