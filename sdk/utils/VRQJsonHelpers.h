#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

// JSON conversions and typed dictionary getters used by every message handler
// and by the gamepad layout reader. A "dictionary" is a JSON object; "bytes"
// are held in a std::string (or viewed through std::string_view). None of
// these functions throws or logs: a failure gives std::nullopt or the default.
// All are pure and safe to call from any thread on values nobody mutates.

// How deep arrays and objects nest in JSON text, strings skipped: 0 for a
// scalar, 1 for {"a":1}. A look at the bytes only, before parsing them.
int vrq_jsonNestingDepth(std::string_view text);
// JSON text nested deeper than this is not parsed: the server's messages are a
// few levels deep, and copying, comparing or writing a value recurses once a
// level, so that a hostile message of nested brackets would exhaust the stack.
inline constexpr int kVRQMaxJsonNesting = 64;

// A JSON object is returned as it is; a JSON string is parsed as JSON text
// (binary values as JSON bytes). The result is the parsed value when it is an
// object, otherwise nothing (also for text nested deeper than
// kVRQMaxJsonNesting, and for bytes with a zero byte anywhere, which is no
// JSON text). Note that "{}" gives an empty dictionary.
std::optional<nlohmann::json> vrq_dictionaryWithJsonObject(const nlohmann::json& object);
std::optional<nlohmann::json> vrq_dictionaryWithJsonObject(std::string_view bytes);
inline std::optional<nlohmann::json> vrq_dictionaryWithJsonObject(const std::string& bytes)
{
    return vrq_dictionaryWithJsonObject(std::string_view(bytes));
}
inline std::optional<nlohmann::json> vrq_dictionaryWithJsonObject(const char* text)
{
    return text ? vrq_dictionaryWithJsonObject(std::string_view(text)) : std::nullopt;
}

// Compact JSON text of any value, for log lines: bytes that are not UTF-8 are
// replaced (U+FFFD), so that outside data can always be shown.
std::string vrq_jsonText(const nlohmann::json& value);

// Compact JSON text of a non-empty dictionary; nothing for an empty one (so
// that an empty message is never sent) or for a value that is not an object.
// Invalid UTF-8 inside strings is written as U+FFFD rather than failing.
std::optional<std::string> vrq_toJsonData(const nlohmann::json& dictionary);

// Bytes (a JSON binary value, or the string_view overload) come back as they
// are; an object or array is serialised compactly; anything else gives nothing.
std::optional<std::string> vrq_dataWithJsonObject(const nlohmann::json& value);
std::optional<std::string> vrq_dataWithJsonObject(std::string_view bytes);
inline std::optional<std::string> vrq_dataWithJsonObject(const std::string& bytes)
{
    return vrq_dataWithJsonObject(std::string_view(bytes));
}

// Base64 (no line breaks) of the compact JSON text of an object or array;
// nothing for any other value.
std::optional<std::string> vrq_stringWithJsonDic(const nlohmann::json& value);

// Typed getters. An empty dictionary, a missing key, JSON null or a value of
// another kind gives the default: strings and numbers are never converted into
// each other. "Number" means a JSON integer, real or boolean.
//
// int: reals are truncated toward zero and clamped to the 32-bit range (NaN
// gives 0); 64-bit integers keep their low 32 bits, as a C cast does.
std::int32_t vrq_intForKey(const nlohmann::json& dictionary, std::string_view key, std::int32_t defaultValue);
// long: reals truncated toward zero and clamped; unsigned integers above the
// signed range wrap.
std::int64_t vrq_longForKey(const nlohmann::json& dictionary, std::string_view key, std::int64_t defaultValue);
// float: the number's single-precision value, widened to double.
double vrq_floatForKey(const nlohmann::json& dictionary, std::string_view key, double defaultValue);
// bool: any non-zero number is true.
bool vrq_boolForKey(const nlohmann::json& dictionary, std::string_view key, bool defaultValue);
// number: the JSON number (integer, real or boolean) itself.
nlohmann::json vrq_numberForKey(const nlohmann::json& dictionary, std::string_view key,
                                const nlohmann::json& defaultValue);
std::optional<std::string> vrq_stringForKey(const nlohmann::json& dictionary, std::string_view key,
                                            const std::optional<std::string>& defaultValue);
nlohmann::json vrq_arrayForKey(const nlohmann::json& dictionary, std::string_view key,
                               const nlohmann::json& defaultValue);
nlohmann::json vrq_dictionaryForKey(const nlohmann::json& dictionary, std::string_view key,
                                    const nlohmann::json& defaultValue);

// A JSON number for a float that serialises as the float's shortest decimal
// form (29.97f is written 29.97, not 29.969999313354492). Infinities and NaN
// are kept as they are (and serialise as null).
nlohmann::json vrq_floatNumber(float value);
