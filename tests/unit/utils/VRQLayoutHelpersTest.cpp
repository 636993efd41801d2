#include "vrq/utils/VRQLayoutHelpers.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using nlohmann::json;

namespace {

struct PointCase {
    std::string text;
    double reference;
    double expected;
};

class VRQLayoutPointTest : public ::testing::TestWithParam<PointCase> {};

TEST_P(VRQLayoutPointTest, ResolvesAgainstTheReference)
{
    EXPECT_EQ(getPointValue(GetParam().text, GetParam().reference), GetParam().expected) << '"' << GetParam().text << '"';
    EXPECT_EQ(vrq_absoluteFloatValue(GetParam().text, GetParam().reference), GetParam().expected);
}

constexpr double infinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Texts, VRQLayoutPointTest,
    ::testing::Values(PointCase{"0.25r", 400, 100}, PointCase{"0.5r", 200, 100}, PointCase{"-10", 400, 390},
                      PointCase{"-20", 200, 180}, PointCase{"20", 400, 20},
                      // Tiny negatives stay absolute; the threshold sees the float value.
                      PointCase{"-0.00001", 400, static_cast<double>(-0.00001f)},
                      PointCase{"-0.0001", 400, static_cast<double>(-0.0001f)},
                      PointCase{"-0.00011", 400, 400 + static_cast<double>(-0.00011f)},
                      PointCase{"", 400, 0}, PointCase{"abc", 400, 0}, PointCase{"r", 400, 0},
                      PointCase{"-r", 400, 0}, PointCase{" \t12.5px", 400, 12.5}, PointCase{"+5", 400, 5},
                      PointCase{".5r", 10, 5}, PointCase{"5.", 0, 5}, PointCase{"1e2", 0, 100},
                      PointCase{"1e", 0, 1}, PointCase{"2E+1r", 2, 40}, PointCase{"0.1", 0, static_cast<double>(0.1f)},
                      PointCase{"1e50", 0, infinity}, PointCase{"-1e50", 0, -infinity},
                      PointCase{"1" + std::string(50, '0'), 0, infinity}, PointCase{"1e-50", 400, 0},
                      PointCase{"0." + std::string(60, '0') + "1", 400, 0}, PointCase{"0x10", 0, 0},
                      PointCase{"inf", 0, 0}, PointCase{"1e99999999999999999999", 0, infinity}));

struct FrameCase {
    const char* name;
    json layout;
    vrq::Rect expected;
};

class VRQLayoutFrameTest : public ::testing::TestWithParam<FrameCase> {};

TEST_P(VRQLayoutFrameTest, AgainstFourHundredByThreeHundred)
{
    const vrq::Rect frame = vrq_getFrameWithReferencenSize(GetParam().layout, {400, 300});
    EXPECT_EQ(frame.origin.x, GetParam().expected.origin.x);
    EXPECT_EQ(frame.origin.y, GetParam().expected.origin.y);
    EXPECT_EQ(frame.size.width, GetParam().expected.size.width);
    EXPECT_EQ(frame.size.height, GetParam().expected.size.height);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, VRQLayoutFrameTest,
    ::testing::Values(
        FrameCase{"RightCountsBack", {{"width", "100"}, {"height", "50"}, {"right", "-10"}}, {{290, 0}, {100, 50}}},
        FrameCase{"Empty", json::object(), {}},
        FrameCase{"NumbersAreIgnored", {{"width", 100}, {"left", 10}, {"top", "5"}}, {{0, 5}, {0, 0}}},
        FrameCase{"LeftAndTopAreFloored", {{"left", "10.7"}, {"top", "0.25r"}}, {{10, 75}, {0, 0}}},
        FrameCase{"SizeIsNotRounded", {{"width", "0.333r"}, {"height", "2.5"}},
                  {{0, 0}, {static_cast<double>(0.333f) * 400, 2.5}}},
        FrameCase{"BottomSubtractsHeight", {{"height", "30"}, {"bottom", "-20"}}, {{0, 250}, {0, 30}}},
        FrameCase{"CenterBeatsLeftAndRight",
                  {{"width", "100"}, {"left", "5"}, {"right", "-10"}, {"centerx", "0.5r"}},
                  {{150, 0}, {100, 0}}},
        FrameCase{"RightBeatsLeft", {{"width", "10"}, {"left", "5"}, {"right", "50"}}, {{40, 0}, {10, 0}}},
        FrameCase{"CenterFloorsAfterHalving", {{"height", "51"}, {"centery", "100"}}, {{0, 74}, {0, 51}}},
        FrameCase{"EmptyTextIsAbsent", {{"width", "10"}, {"left", ""}, {"centerx", ""}}, {{0, 0}, {10, 0}}},
        FrameCase{"NegativeLeftIsFlooredDown", {{"left", "-0.00005"}}, {{-1, 0}, {0, 0}}}),
    [](const ::testing::TestParamInfo<FrameCase>& param) { return std::string(param.param.name); });

} // namespace
