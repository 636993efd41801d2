#include "vrq/utils/VRQColorHelpers.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct ColorCase {
    std::string text;
    vrq::Color expected;
};

class VRQColorHelpersTest : public ::testing::TestWithParam<ColorCase> {};

TEST_P(VRQColorHelpersTest, ParsesHexComponents)
{
    const vrq::Color color = vrq_colorValue(GetParam().text);
    EXPECT_DOUBLE_EQ(color.red, GetParam().expected.red) << GetParam().text;
    EXPECT_DOUBLE_EQ(color.green, GetParam().expected.green) << GetParam().text;
    EXPECT_DOUBLE_EQ(color.blue, GetParam().expected.blue) << GetParam().text;
    EXPECT_DOUBLE_EQ(color.alpha, GetParam().expected.alpha) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, VRQColorHelpersTest,
    ::testing::Values(ColorCase{"#FF000080", {1, 0, 0, 128 / 255.0}}, ColorCase{"#FFF", {}},
                      ColorCase{"xFF0000", {1, 0, 0, 1}}, ColorCase{"#00ff00", {0, 1, 0, 1}},
                      ColorCase{"#12345678", {0x12 / 255.0, 0x34 / 255.0, 0x56 / 255.0, 0x78 / 255.0}},
                      ColorCase{"#aBcDeF", {0xab / 255.0, 0xcd / 255.0, 0xef / 255.0, 1}},
                      // Invalid pairs read their valid leading digit, or nothing.
                      ColorCase{"#FG0000", {15 / 255.0, 0, 0, 1}}, ColorCase{"#G0-1 z", {0, 0, 0, 1}},
                      ColorCase{"#1234567", {}}, ColorCase{"", {}}, ColorCase{"#FF0000FF00", {}}));

} // namespace
