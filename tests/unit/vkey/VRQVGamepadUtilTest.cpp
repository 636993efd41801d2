#include "support/LogCapture.h"
#include "support/TempHome.h"
#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/platform/views/Image.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

struct Length {
    const char* value;
    bool againstWidth;
    double points;
};

class VRQVGamepadUtilLengthTest : public testing::TestWithParam<Length> {};

// On a 1280 x 720 parent: pixels of the 1920-wide layout are scaled and
// truncated; "%" values are fractions of the full length, not divided by 100.
TEST_P(VRQVGamepadUtilLengthTest, ConvertsAgainstTheParent)
{
    VRQVGamepadUtil::setParentSize(1280, 720);
    const Length& length = GetParam();
    const double points = length.againstWidth ? VRQVGamepadUtil::stringToPointW(length.value)
                                              : VRQVGamepadUtil::stringToPointH(length.value);
    EXPECT_EQ(points, length.points) << length.value;
}

INSTANTIATE_TEST_SUITE_P(Lengths, VRQVGamepadUtilLengthTest,
                         testing::Values(Length{"960", true, 640}, Length{"100", true, 66}, Length{"-100", true, 1214},
                                         Length{"-100", false, 654}, Length{"0.25%", true, 320},
                                         Length{"12.9", true, 8}, Length{"50%", true, 64000},
                                         Length{"0.05%", true, 64}, Length{"-0.5%", false, 360}, Length{"", true, 0},
                                         Length{"-0", true, 0}, Length{"1920", false, 1280}));

TEST(VRQVGamepadUtilTest, LengthsThatAreNoNumberAreZeroAndLogged)
{
    vrqtest::LogCapture log;
    VRQVGamepadUtil::setParentSize(1280, 720);
    for (const char* value : {"abc", "%", "1e400", "1e400%", "nan", "-99999999999"})
        EXPECT_EQ(VRQVGamepadUtil::stringToPointW(value), 0) << value;
    EXPECT_TRUE(log.contains("layout length \"abc\" is not a number; taken as 0"));
    EXPECT_TRUE(log.contains("layout length \"1e400\" is out of range; taken as 0"));
    EXPECT_EQ(VRQVGamepadUtil::percentToString(0.25), "0.2500%");

    // Before a parent is known, every length is 0.
    VRQVGamepadUtil::setParentSize(0, 0);
    EXPECT_EQ(VRQVGamepadUtil::stringToPointW("960"), 0);
}

TEST(VRQVGamepadUtilTest, ColoursOfOtherLengthsAreTransparent)
{
    vrqtest::LogCapture log;
    EXPECT_EQ(VRQVGamepadUtil::colorFromString("#FFF"), (vrq::Color{0, 0, 0, 0}));
    EXPECT_TRUE(log.contains("layout colour \"#FFF\" is not #RRGGBB or #RRGGBBAA; transparent"));
    EXPECT_EQ(VRQVGamepadUtil::colorFromString("#FF000080"), (vrq::Color{1, 0, 0, 128 / 255.0}));
    EXPECT_EQ(VRQVGamepadUtil::colorFromString("#00FF00"), (vrq::Color{0, 1, 0, 1}));
}

TEST(VRQVGamepadUtilTest, ImagesComeFromTheKitOrTheHostsFolder)
{
    vrqtest::LogCapture log;
    const auto a = VRQVGamepadUtil::loadImageFromFile("a");
    ASSERT_TRUE(a);
    EXPECT_EQ(a->width(), 128);
    EXPECT_EQ(VRQVGamepadUtil::loadImageFromFile("a"), a); // decoded once
    EXPECT_FALSE(VRQVGamepadUtil::loadImageFromFile(""));
    EXPECT_FALSE(VRQVGamepadUtil::loadImageFromFile("no_such_image"));
    EXPECT_TRUE(log.contains("no_such_image.png is missing"));
    EXPECT_FALSE(VRQVGamepadUtil::loadImageFromFile("../vrqvkey/a"));

    // A host's own folder: its images, and nothing of the kit's.
    vrqtest::TempDir dir;
    std::filesystem::copy_file(VRQVGamepadUtil::imageFolder() + "/b.png", dir.path() / "mine.png");
    VRQVGamepadUtil::setImageFolder(dir.path().string());
    EXPECT_TRUE(VRQVGamepadUtil::loadImageFromFile("mine"));
    EXPECT_FALSE(VRQVGamepadUtil::loadImageFromFile("a"));
    VRQVGamepadUtil::setImageFolder("");
    EXPECT_TRUE(VRQVGamepadUtil::loadImageFromFile("a"));
}

} // namespace
