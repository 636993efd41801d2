#include "vrq/utils/VRQJsonHelpers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using nlohmann::json;

namespace nlohmann {
// Failure messages show JSON text; GoogleTest would otherwise walk a value as a
// container of values without end.
inline void PrintTo(const json& value, std::ostream* out)
{
    *out << value.dump();
}
} // namespace nlohmann

namespace {

struct ParseCase {
    const char* text;
    std::optional<json> expected;
};

class VRQJsonParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(VRQJsonParseTest, OnlyTopLevelObjectsAreDictionaries)
{
    EXPECT_EQ(vrq_dictionaryWithJsonObject(GetParam().text), GetParam().expected);
    EXPECT_EQ(vrq_dictionaryWithJsonObject(std::string(GetParam().text)), GetParam().expected);
    EXPECT_EQ(vrq_dictionaryWithJsonObject(json(GetParam().text)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, VRQJsonParseTest,
                         ::testing::Values(ParseCase{"[1,2]", std::nullopt}, ParseCase{"{}", json::object()},
                                           ParseCase{R"({"a":1,"b":[true]})", json{{"a", 1}, {"b", {true}}}},
                                           ParseCase{"", std::nullopt}, ParseCase{"\"text\"", std::nullopt},
                                           ParseCase{"{\"a\":1} trailing", std::nullopt},
                                           ParseCase{"{\"a\":1", std::nullopt},
                                           ParseCase{"{\"a\":\"\xff\"}", std::nullopt},
                                           ParseCase{"{/*c*/}", std::nullopt}, ParseCase{"null", std::nullopt}));

TEST(VRQJsonConversionTest, DictionaryFromJsonValues)
{
    const json object = {{"type", "hb"}};
    EXPECT_EQ(vrq_dictionaryWithJsonObject(object), object);
    EXPECT_EQ(vrq_dictionaryWithJsonObject(json::binary({'{', '}'})), json::object());
    // The parser alone would stop at the zero byte and accept the object before it.
    EXPECT_EQ(vrq_dictionaryWithJsonObject(std::string_view("{\"a\":1}\0{", 9)), std::nullopt);
    EXPECT_EQ(vrq_dictionaryWithJsonObject(json(5)), std::nullopt);
}

// A value nested kVRQMaxJsonNesting deep, as object and array levels.
std::string nestedText(int depth, const std::string& innermost)
{
    std::string text = "{\"a\":";
    for (int level = 1; level < depth; ++level)
        text += "[";
    text += innermost;
    for (int level = 1; level < depth; ++level)
        text += "]";
    return text + "}";
}

TEST(VRQJsonConversionTest, TextNestedDeeperThanTheLimitIsNoDictionary)
{
    // Brackets inside strings, escaped quotes included, are not levels.
    EXPECT_EQ(vrq_jsonNestingDepth(R"({"a":"[[{\"[","b":[{}]})"), 3);
    EXPECT_EQ(vrq_jsonNestingDepth("12"), 0);
    const std::string deepest = nestedText(kVRQMaxJsonNesting, "\"[[\"");
    EXPECT_EQ(vrq_jsonNestingDepth(deepest), kVRQMaxJsonNesting);
    EXPECT_TRUE(vrq_dictionaryWithJsonObject(deepest).has_value());
    const std::string tooDeep = nestedText(kVRQMaxJsonNesting + 1, "1");
    EXPECT_EQ(vrq_dictionaryWithJsonObject(tooDeep), std::nullopt);
    EXPECT_EQ(vrq_dictionaryWithJsonObject(json::binary(std::vector<std::uint8_t>(tooDeep.begin(), tooDeep.end()))),
              std::nullopt);
    // Thousands of levels, which copying the parsed value would recurse through.
    EXPECT_EQ(vrq_dictionaryWithJsonObject(nestedText(100000, "1")), std::nullopt);
}

TEST(VRQJsonConversionTest, ToJsonDataIsCompactAndRefusesEmptyMessages)
{
    EXPECT_EQ(vrq_toJsonData(json::object()), std::nullopt);
    EXPECT_EQ(vrq_toJsonData(json::array({1})), std::nullopt);
    EXPECT_EQ(vrq_toJsonData(json{{"type", "key"}, {"down", true}, {"list", {1, 2}}}),
              R"({"down":true,"list":[1,2],"type":"key"})");
    // Bytes that are not UTF-8 must not throw out of the sender.
    const auto replaced = vrq_toJsonData(json{{"text", "a\xff"}});
    ASSERT_TRUE(replaced);
    EXPECT_EQ(*replaced, "{\"text\":\"a\xef\xbf\xbd\"}");
}

TEST(VRQJsonConversionTest, DataAndBase64FromJsonValues)
{
    const std::string raw("\x00\xff not json", 11);
    EXPECT_EQ(vrq_dataWithJsonObject(raw), raw);
    EXPECT_EQ(vrq_dataWithJsonObject(json::binary({0, 255})), std::string("\x00\xff", 2));
    EXPECT_EQ(vrq_dataWithJsonObject(json::array({1, "a"})), R"([1,"a"])");
    EXPECT_EQ(vrq_dataWithJsonObject(json("text")), std::nullopt);
    EXPECT_EQ(vrq_dataWithJsonObject(json(1.5)), std::nullopt);

    EXPECT_EQ(vrq_stringWithJsonDic(json{{"a", 1}}), "eyJhIjoxfQ==");
    EXPECT_EQ(vrq_stringWithJsonDic(json::array()), "W10=");
    EXPECT_EQ(vrq_stringWithJsonDic(json("{}")), std::nullopt);
    const auto longText = vrq_stringWithJsonDic(json{{"sdp", std::string(500, 'v')}});
    ASSERT_TRUE(longText);
    EXPECT_EQ(longText->find('\n'), std::string::npos);
}

// One dictionary with every kind of value the getters meet.
const json& sample()
{
    static const json dictionary = {
        {"int", 7},
        {"real", 3.9},
        {"negReal", -3.9},
        {"text", "3"},
        {"textTrue", "true"},
        {"true", true},
        {"false", false},
        {"null", nullptr},
        {"wide", 4294967297LL},
        {"unsignedMax", std::numeric_limits<std::uint64_t>::max()},
        {"huge", 1e20},
        {"tiny", -1e20},
        {"nan", std::nan("")},
        {"float", 29.97},
        {"bigReal", 1e300},
        {"half", 0.5},
        {"zeroReal", 0.0},
        {"array", {1, 2}},
        {"object", {{"k", 1}}},
    };
    return dictionary;
}

struct IntegerCase {
    const char* key;
    std::int32_t asInt;
    std::int64_t asLong;
};

class VRQJsonIntegerGetterTest : public ::testing::TestWithParam<IntegerCase> {};

TEST_P(VRQJsonIntegerGetterTest, ConvertsNumbersOnly)
{
    EXPECT_EQ(vrq_intForKey(sample(), GetParam().key, 42), GetParam().asInt);
    EXPECT_EQ(vrq_longForKey(sample(), GetParam().key, 42), GetParam().asLong);
}

constexpr auto int32Max = std::numeric_limits<std::int32_t>::max();
constexpr auto int32Min = std::numeric_limits<std::int32_t>::min();
constexpr auto int64Max = std::numeric_limits<std::int64_t>::max();
constexpr auto int64Min = std::numeric_limits<std::int64_t>::min();

INSTANTIATE_TEST_SUITE_P(Keys, VRQJsonIntegerGetterTest,
                         ::testing::Values(IntegerCase{"int", 7, 7}, IntegerCase{"real", 3, 3},
                                           IntegerCase{"negReal", -3, -3}, IntegerCase{"text", 42, 42},
                                           IntegerCase{"true", 1, 1}, IntegerCase{"false", 0, 0},
                                           IntegerCase{"null", 42, 42}, IntegerCase{"missing", 42, 42},
                                           IntegerCase{"array", 42, 42}, IntegerCase{"object", 42, 42},
                                           IntegerCase{"wide", 1, 4294967297LL},
                                           IntegerCase{"unsignedMax", -1, -1},
                                           IntegerCase{"huge", int32Max, int64Max},
                                           IntegerCase{"tiny", int32Min, int64Min}, IntegerCase{"nan", 0, 0}));

TEST(VRQJsonGetterTest, EmptyOrNonObjectReceiverGivesDefaults)
{
    for (const json& receiver : {json::object(), json::array({1}), json(), json("int")}) {
        EXPECT_EQ(vrq_intForKey(receiver, "int", 9), 9);
        EXPECT_EQ(vrq_stringForKey(receiver, "int", "d"), "d");
        EXPECT_EQ(vrq_dictionaryForKey(receiver, "int", json{{"d", 1}}), json({{"d", 1}}));
    }
}

TEST(VRQJsonGetterTest, FloatIsSinglePrecisionWidened)
{
    EXPECT_EQ(vrq_floatForKey(sample(), "float", 0), static_cast<double>(29.97f));
    EXPECT_NE(vrq_floatForKey(sample(), "float", 0), 29.97);
    EXPECT_EQ(vrq_floatForKey(sample(), "int", 0), 7.0);
    EXPECT_EQ(vrq_floatForKey(sample(), "true", 0), 1.0);
    EXPECT_EQ(vrq_floatForKey(sample(), "wide", 0), static_cast<double>(4294967297.0f));
    EXPECT_EQ(vrq_floatForKey(sample(), "bigReal", 0), std::numeric_limits<double>::infinity());
    EXPECT_EQ(vrq_floatForKey(sample(), "text", -1.5), -1.5);
    EXPECT_EQ(vrq_floatForKey(sample(), "null", -1.5), -1.5);
    EXPECT_TRUE(std::isnan(vrq_floatForKey(sample(), "nan", 0)));
}

TEST(VRQJsonGetterTest, FloatRoundsAtTheEdgeOfTheFloatRange)
{
    const double justAbove = std::nextafter(static_cast<double>(std::numeric_limits<float>::max()), 1e300);
    const json values = {{"above", justAbove}, {"negative", -1e39}, {"halfway", 0x1.ffffffp127}};
    EXPECT_EQ(vrq_floatForKey(values, "above", 0), std::numeric_limits<float>::max());
    EXPECT_EQ(vrq_floatForKey(values, "negative", 0), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(vrq_floatForKey(values, "halfway", 0), std::numeric_limits<double>::infinity());
}

TEST(VRQJsonGetterTest, BoolIsNonZeroNumber)
{
    EXPECT_TRUE(vrq_boolForKey(sample(), "true", false));
    EXPECT_FALSE(vrq_boolForKey(sample(), "false", true));
    EXPECT_TRUE(vrq_boolForKey(sample(), "half", false));
    EXPECT_FALSE(vrq_boolForKey(sample(), "zeroReal", true));
    EXPECT_TRUE(vrq_boolForKey(sample(), "unsignedMax", false));
    EXPECT_FALSE(vrq_boolForKey(sample(), "textTrue", false));
    EXPECT_TRUE(vrq_boolForKey(sample(), "null", true));
}

TEST(VRQJsonGetterTest, NumberKeepsItsKind)
{
    const json number = vrq_numberForKey(sample(), "int", 0);
    EXPECT_TRUE(number.is_number_integer());
    EXPECT_EQ(number, 7);
    EXPECT_EQ(vrq_numberForKey(sample(), "real", 0), 3.9);
    EXPECT_EQ(vrq_numberForKey(sample(), "true", 0), true);
    EXPECT_EQ(vrq_numberForKey(sample(), "text", -1), -1);
    EXPECT_EQ(vrq_numberForKey(sample(), "array", -1), -1);
}

TEST(VRQJsonGetterTest, StringArrayAndDictionaryNeedTheirOwnKind)
{
    EXPECT_EQ(vrq_stringForKey(sample(), "text", std::nullopt), "3");
    EXPECT_EQ(vrq_stringForKey(sample(), "int", std::nullopt), std::nullopt);
    EXPECT_EQ(vrq_stringForKey(sample(), "null", "d"), "d");
    EXPECT_EQ(vrq_arrayForKey(sample(), "array", json::array()), json({1, 2}));
    EXPECT_EQ(vrq_arrayForKey(sample(), "object", json::array()), json::array());
    EXPECT_EQ(vrq_dictionaryForKey(sample(), "object", json::object()), json({{"k", 1}}));
    EXPECT_EQ(vrq_dictionaryForKey(sample(), "array", json::object()), json::object());
}

TEST(VRQJsonFloatNumberTest, PrintsTheShortestDecimalOfTheFloat)
{
    EXPECT_EQ(vrq_floatNumber(29.97f).dump(), "29.97");
    EXPECT_EQ(vrq_floatNumber(0.1f).dump(), "0.1");
    EXPECT_EQ(vrq_floatNumber(3.0f).dump(), "3.0");
    EXPECT_EQ(vrq_floatNumber(-0.5f).dump(), "-0.5");
    for (float value : {29.97f, 1e-7f, std::numeric_limits<float>::max(), std::numeric_limits<float>::denorm_min()})
        EXPECT_EQ(static_cast<float>(vrq_floatNumber(value).get<double>()), value);
    EXPECT_TRUE(std::isinf(vrq_floatNumber(std::numeric_limits<float>::infinity()).get<double>()));
    EXPECT_EQ(vrq_floatNumber(std::nanf("")).dump(), "null");
}

} // namespace
