// The JSON and dictionary helpers every message handler reads with: parsing,
// the typed getters on every member, writing back and the MD5 digest.
#include "FuzzCheck.h"

#include "vrq/platform/services/Crypto.h"
#include "vrq/utils/VRQDigest.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

bool isNumber(const nlohmann::json& value)
{
    return value.is_number() || value.is_boolean();
}

// Every getter on one key: a value of another kind gives the default.
void readMember(const nlohmann::json& dictionary, const std::string& key)
{
    const auto found = dictionary.find(key);
    const bool present = found != dictionary.end();
    const bool number = present && isNumber(*found);
    const bool text = present && found->is_string();

    const std::int32_t anInt = vrq_intForKey(dictionary, key, -7);
    const std::int64_t aLong = vrq_longForKey(dictionary, key, -7);
    const double aFloat = vrq_floatForKey(dictionary, key, -7);
    const bool aBool = vrq_boolForKey(dictionary, key, true);
    const auto aNumber = vrq_numberForKey(dictionary, key, nullptr);
    const auto aString = vrq_stringForKey(dictionary, key, std::nullopt);
    const auto anArray = vrq_arrayForKey(dictionary, key, nullptr);
    const auto anObject = vrq_dictionaryForKey(dictionary, key, nullptr);
    if (!number) {
        FUZZ_CHECK(anInt == -7 && aLong == -7 && aFloat == -7 && aBool && aNumber.is_null());
    } else {
        FUZZ_CHECK(aNumber == *found);
        if (found->is_number_integer() && aLong >= INT32_MIN && aLong <= INT32_MAX)
            FUZZ_CHECK(anInt == aLong);
    }
    FUZZ_CHECK(aString.has_value() == text);
    FUZZ_CHECK(anArray.is_null() == !(present && found->is_array()));
    FUZZ_CHECK(anObject.is_null() == !(present && found->is_object()));
}

void walk(const nlohmann::json& value, int depth)
{
    if (depth > 8)
        return;
    if (value.is_object()) {
        for (const auto& [key, member] : value.items()) {
            readMember(value, key);
            walk(member, depth + 1);
        }
        readMember(value, "");
        readMember(value, "code");
    } else if (value.is_array()) {
        for (const auto& element : value)
            walk(element, depth + 1);
    }
}

int depthOf(const nlohmann::json& value)
{
    int deepest = 0;
    if (value.is_object() || value.is_array())
        for (const auto& member : value)
            deepest = std::max(deepest, depthOf(member));
    return value.is_object() || value.is_array() ? deepest + 1 : 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    const std::string digest = vrq_md5(bytes);
    FUZZ_CHECK(digest.size() == 32 && digest.find_first_not_of("0123456789abcdef") == std::string::npos);
    FUZZ_CHECK(digest == vrq_md5(bytes.substr(0, bytes.find('\0'))));

    const auto dictionary = vrq_dictionaryWithJsonObject(bytes);
    const int depth = vrq_jsonNestingDepth(bytes);
    // Deeper text, and bytes with a zero byte, are refused before they are parsed.
    if (depth > kVRQMaxJsonNesting || bytes.find('\0') != std::string_view::npos) {
        FUZZ_CHECK(!dictionary);
        return 0;
    }
    const auto any = nlohmann::json::parse(bytes, nullptr, false);
    // An object comes back exactly when the text is a JSON object.
    FUZZ_CHECK(dictionary.has_value() == (!any.is_discarded() && any.is_object()));
    if (!any.is_discarded()) {
        // The look at the bytes sees the nesting the parser builds.
        FUZZ_CHECK(depthOf(any) == depth);
        walk(any, 0);
        FUZZ_CHECK(!vrq_jsonText(any).empty());
    }
    if (!dictionary)
        return 0;
    FUZZ_CHECK(vrq_dictionaryWithJsonObject(*dictionary) == dictionary);

    // Written back, an object reads as the same object; an empty one is never written.
    const auto written = vrq_toJsonData(*dictionary);
    FUZZ_CHECK(written.has_value() == !dictionary->empty());
    if (!written)
        return 0;
    FUZZ_CHECK(vrq_dictionaryWithJsonObject(*written) == dictionary);
    FUZZ_CHECK(vrq_dataWithJsonObject(*dictionary) == written);
    const auto encoded = vrq_stringWithJsonDic(*dictionary);
    FUZZ_CHECK(encoded && vrq::base64Decode(*encoded) == written);
    return 0;
}
