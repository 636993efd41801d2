#include "CursorImage.h"

#include "integration/server/PngInfo.h"

#include "vrq/platform/services/Crypto.h"

#include <gtest/gtest.h>

using vrqserver::CursorImage;

TEST(CursorImageTest, TheArrowIsAPngWhoseSizeAndHotspotTheMessageStates)
{
    const auto arrow = CursorImage::arrow();
    ASSERT_TRUE(arrow);
    EXPECT_EQ(arrow->png().substr(0, 8), vrqtest::kPngSignature);
    const auto image = vrqtest::decodePng(arrow->png());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 16u);
    EXPECT_EQ(image->height, 16u);
    EXPECT_EQ(image->alphaAt(2, 3), 255) << "the tip is the hotspot";
    EXPECT_EQ(image->alphaAt(15, 0), 0) << "transparent around the arrow";

    const auto message = arrow->message();
    EXPECT_EQ(message["data_type"], "mouse");
    EXPECT_EQ(message["data_key"], "arrow-1");
    EXPECT_EQ(vrq::base64Decode(message["data"].get<std::string>()), arrow->png());
    EXPECT_EQ(message["width_v2"], 16);
    EXPECT_EQ(message["height_v2"], 16);
    EXPECT_EQ(message["hotspotx_v2"], 2);
    EXPECT_EQ(message["hotspoty_v2"], 3);
}

TEST(CursorImageTest, EncodesWhatItIsGivenPixelForPixelAndRefusesAWrongSize)
{
    std::vector<std::uint8_t> rgba;
    for (int i = 0; i < 3 * 2; ++i)
        rgba.insert(rgba.end(), {static_cast<std::uint8_t>(i * 40), 7, 200, static_cast<std::uint8_t>(255 - i)});
    const auto png = CursorImage::encodePng(3, 2, rgba);
    ASSERT_TRUE(png);
    const auto decoded = vrqtest::decodePng(*png);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->rgba, rgba);
    EXPECT_FALSE(CursorImage::encodePng(3, 3, rgba));
    EXPECT_FALSE(CursorImage::encodePng(0, 2, {}));
}
