#include "vrq/utils/VRQJsonHelpers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "vrq/platform/services/Crypto.h"

using nlohmann::json;

namespace {

std::string compactText(const json& value)
{
    // Strings may hold arbitrary bytes; replacing invalid UTF-8 keeps the
    // message sendable instead of throwing.
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

std::string vrq_jsonText(const json& value)
{
    return compactText(value);
}

namespace {

const json* valueForKey(const json& dictionary, std::string_view key)
{
    if (!dictionary.is_object() || dictionary.empty())
        return nullptr;
    const auto it = dictionary.find(key);
    return it == dictionary.end() ? nullptr : &*it;
}

const json* numberForKey(const json& dictionary, std::string_view key)
{
    const json* value = valueForKey(dictionary, key);
    return value && (value->is_number() || value->is_boolean()) ? value : nullptr;
}

// Truncates toward zero; out-of-range values saturate and NaN gives 0, where a
// plain cast would be undefined.
template <typename Int>
Int truncateClamped(double value)
{
    constexpr double lowest = static_cast<double>(std::numeric_limits<Int>::min());
    if (std::isnan(value))
        return 0;
    if (value <= lowest)
        return std::numeric_limits<Int>::min();
    if (value >= -lowest)
        return std::numeric_limits<Int>::max();
    return static_cast<Int>(value);
}

// Rounds to nearest like the hardware would, without the undefined behaviour
// of converting a finite double beyond the float range.
float narrowToFloat(double value)
{
    constexpr double largest = std::numeric_limits<float>::max();
    constexpr double firstRoundingToInfinity = 0x1.ffffffp127;
    if (std::isnan(value) || std::fabs(value) <= largest)
        return static_cast<float>(value);
    const float limit = std::fabs(value) < firstRoundingToInfinity ? std::numeric_limits<float>::max()
                                                                   : std::numeric_limits<float>::infinity();
    return std::signbit(value) ? -limit : limit;
}

// Integers and booleans only; reals are handled by each caller's own rule.
std::int64_t integerValue(const json& number)
{
    if (number.is_number_unsigned())
        return static_cast<std::int64_t>(number.get<std::uint64_t>());
    if (number.is_boolean())
        return number.get<bool>() ? 1 : 0;
    return number.get<std::int64_t>();
}

} // namespace

std::optional<json> vrq_dictionaryWithJsonObject(const json& object)
{
    if (object.is_object())
        return object;
    if (object.is_string())
        return vrq_dictionaryWithJsonObject(std::string_view(object.get_ref<const std::string&>()));
    if (object.is_binary()) {
        const auto& bytes = object.get_binary();
        return vrq_dictionaryWithJsonObject(
            std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    }
    return std::nullopt;
}

int vrq_jsonNestingDepth(std::string_view text)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (inString) {
            if (c == '\\')
                ++at;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

std::optional<json> vrq_dictionaryWithJsonObject(std::string_view bytes)
{
    // A zero byte is never part of JSON text, but the parser would take it for
    // the end of the text and accept what came before it.
    if (bytes.find('\0') != std::string_view::npos || vrq_jsonNestingDepth(bytes) > kVRQMaxJsonNesting)
        return std::nullopt;
    json parsed = json::parse(bytes, nullptr, false);
    if (!parsed.is_object())
        return std::nullopt;
    return parsed;
}

std::optional<std::string> vrq_toJsonData(const json& dictionary)
{
    if (!dictionary.is_object() || dictionary.empty())
        return std::nullopt;
    return compactText(dictionary);
}

std::optional<std::string> vrq_dataWithJsonObject(const json& value)
{
    if (value.is_binary())
        return std::string(value.get_binary().begin(), value.get_binary().end());
    if (value.is_object() || value.is_array())
        return compactText(value);
    return std::nullopt;
}

std::optional<std::string> vrq_dataWithJsonObject(std::string_view bytes)
{
    return std::string(bytes);
}

std::optional<std::string> vrq_stringWithJsonDic(const json& value)
{
    if (!value.is_object() && !value.is_array())
        return std::nullopt;
    return vrq::base64Encode(compactText(value));
}

std::int32_t vrq_intForKey(const json& dictionary, std::string_view key, std::int32_t defaultValue)
{
    const json* number = numberForKey(dictionary, key);
    if (!number)
        return defaultValue;
    if (number->is_number_float())
        return truncateClamped<std::int32_t>(number->get<double>());
    return static_cast<std::int32_t>(integerValue(*number));
}

std::int64_t vrq_longForKey(const json& dictionary, std::string_view key, std::int64_t defaultValue)
{
    const json* number = numberForKey(dictionary, key);
    if (!number)
        return defaultValue;
    if (number->is_number_float())
        return truncateClamped<std::int64_t>(number->get<double>());
    return integerValue(*number);
}

double vrq_floatForKey(const json& dictionary, std::string_view key, double defaultValue)
{
    const json* number = numberForKey(dictionary, key);
    if (!number)
        return defaultValue;
    if (number->is_number_float())
        return narrowToFloat(number->get<double>());
    if (number->is_number_unsigned())
        return static_cast<float>(number->get<std::uint64_t>());
    return static_cast<float>(integerValue(*number));
}

bool vrq_boolForKey(const json& dictionary, std::string_view key, bool defaultValue)
{
    const json* number = numberForKey(dictionary, key);
    if (!number)
        return defaultValue;
    if (number->is_number_float())
        return number->get<double>() != 0.0;
    return integerValue(*number) != 0;
}

json vrq_numberForKey(const json& dictionary, std::string_view key, const json& defaultValue)
{
    const json* number = numberForKey(dictionary, key);
    return number ? *number : defaultValue;
}

std::optional<std::string> vrq_stringForKey(const json& dictionary, std::string_view key,
                                            const std::optional<std::string>& defaultValue)
{
    const json* value = valueForKey(dictionary, key);
    if (!value || !value->is_string())
        return defaultValue;
    return value->get<std::string>();
}

json vrq_arrayForKey(const json& dictionary, std::string_view key, const json& defaultValue)
{
    const json* value = valueForKey(dictionary, key);
    return value && value->is_array() ? *value : defaultValue;
}

json vrq_dictionaryForKey(const json& dictionary, std::string_view key, const json& defaultValue)
{
    const json* value = valueForKey(dictionary, key);
    return value && value->is_object() ? *value : defaultValue;
}

json vrq_floatNumber(float value)
{
    if (!std::isfinite(value))
        return static_cast<double>(value);
    // The shortest text that reads back as this float, read as a double, is
    // the double nearest to what a person would write.
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value);
    double widened = value;
    std::from_chars(text, written.ptr, widened);
    return widened;
}
