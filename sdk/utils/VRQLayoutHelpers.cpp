#include "vrq/utils/VRQLayoutHelpers.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "vrq/utils/VRQJsonHelpers.h"

namespace {

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Reads the leading number of a text without the locale dependence of strtof.
class NumberScanner {
public:
    explicit NumberScanner(std::string_view text) : m_text(text) {}

    float scan()
    {
        while (m_pos < m_text.size() && isSpace(m_text[m_pos]))
            ++m_pos;
        const bool negative = accept('-');
        if (!negative)
            accept('+');
        const std::size_t start = m_pos;
        const std::string_view integerPart = digits();
        std::string_view fractionPart;
        if (accept('.'))
            fractionPart = digits();
        if (integerPart.empty() && fractionPart.empty())
            return 0;
        const long long exponent = scanExponent();
        float value = 0;
        const auto result = std::from_chars(m_text.data() + start, m_text.data() + m_pos, value);
        if (result.ec == std::errc::result_out_of_range)
            value = leadingDigitPower(integerPart, fractionPart, exponent) > 0 ? std::numeric_limits<float>::infinity() : 0;
        return negative ? -value : value;
    }

private:
    bool accept(char c)
    {
        if (m_pos >= m_text.size() || m_text[m_pos] != c)
            return false;
        ++m_pos;
        return true;
    }

    std::string_view digits()
    {
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() && isDigit(m_text[m_pos]))
            ++m_pos;
        return m_text.substr(start, m_pos - start);
    }

    // An exponent counts only when it has digits: "1e" and "1e+" read as 1.
    long long scanExponent()
    {
        const std::size_t mark = m_pos;
        if (!accept('e') && !accept('E'))
            return 0;
        const bool negative = accept('-');
        if (!negative)
            accept('+');
        const std::string_view exponentDigits = digits();
        if (exponentDigits.empty()) {
            m_pos = mark;
            return 0;
        }
        long long value = 0;
        for (char c : exponentDigits)
            value = std::min(value * 10 + (c - '0'), 1'000'000LL);
        return negative ? -value : value;
    }

    // Positive exactly when the number is at least 1; tells an overflow from
    // an underflow when the value does not fit in a float.
    static long long leadingDigitPower(std::string_view integerPart, std::string_view fractionPart, long long exponent)
    {
        const std::size_t firstSignificant = integerPart.find_first_not_of('0');
        if (firstSignificant != std::string_view::npos)
            return static_cast<long long>(integerPart.size() - firstSignificant) + exponent;
        const std::size_t leadingZeros = std::min(fractionPart.find_first_not_of('0'), fractionPart.size());
        return exponent - static_cast<long long>(leadingZeros);
    }

    std::string_view m_text;
    std::size_t m_pos = 0;
};

} // namespace

float vrq_floatValue(std::string_view text)
{
    return NumberScanner(text).scan();
}

std::int32_t vrq_intValue(std::string_view text)
{
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
        ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    std::int64_t magnitude = 0;
    const std::int64_t limit = negative ? -std::int64_t{INT32_MIN} : INT32_MAX;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at)
        magnitude = std::min(magnitude * 10 + (text[at] - '0'), limit);
    return static_cast<std::int32_t>(negative ? -magnitude : magnitude);
}

double getPointValue(std::string_view text, double reference)
{
    if (text.empty())
        return 0;
    const bool relative = text.back() == 'r';
    if (relative)
        text.remove_suffix(1);
    const double value = vrq_floatValue(text);
    if (relative)
        return value * reference;
    // A small negative tolerance keeps "-0" and rounding noise absolute.
    if (value < -0.0001)
        return value + reference;
    return value;
}

double vrq_absoluteFloatValue(std::string_view text, double reference)
{
    return getPointValue(text, reference);
}

vrq::Rect vrq_getFrameWithReferencenSize(const nlohmann::json& dictionary, vrq::Size reference)
{
    vrq::Rect frame;
    if (!dictionary.is_object() || dictionary.empty())
        return frame;
    const auto length = [&](std::string_view key, double against) {
        return getPointValue(vrq_stringForKey(dictionary, key, "0").value_or("0"), against);
    };
    const double width = length("width", reference.width);
    const double height = length("height", reference.height);
    frame.size = {width, height};

    const auto place = [&](std::string_view key, double against, auto&& apply) {
        const std::optional<std::string> text = vrq_stringForKey(dictionary, key, std::nullopt);
        if (text && !text->empty())
            apply(getPointValue(*text, against));
    };
    double& x = frame.origin.x;
    double& y = frame.origin.y;
    // Later keys overwrite earlier ones: right beats left, centre beats both.
    place("left", reference.width, [&](double v) { x = std::floor(v); });
    place("top", reference.height, [&](double v) { y = std::floor(v); });
    place("right", reference.width, [&](double v) { x = std::floor(v) - width; });
    place("bottom", reference.height, [&](double v) { y = std::floor(v) - height; });
    place("centerx", reference.width, [&](double v) { x = std::floor(v - width / 2); });
    place("centery", reference.height, [&](double v) { y = std::floor(v - height / 2); });
    return frame;
}
