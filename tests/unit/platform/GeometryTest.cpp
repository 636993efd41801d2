#include "vrq/platform/views/Geometry.h"

#include <gtest/gtest.h>

namespace {

TEST(GeometryTest, RectanglesWriteInTheirShortestFormAndReadBack)
{
    const vrq::Rect rect{{-0.0011, -3}, {640, 360.5}};
    EXPECT_EQ(vrq::stringFromRect(rect), "{{-0.0011, -3}, {640, 360.5}}");
    EXPECT_EQ(vrq::rectFromString(vrq::stringFromRect(rect)), rect);
    EXPECT_EQ(vrq::stringFromSize({1280, 720}), "{1280, 720}");
    EXPECT_EQ(vrq::stringFromEdgeInsets({100, 50, 50, 100}), "{100, 50, 50, 100}");
    EXPECT_EQ(vrq::rectFromString(" {{1,2},{3,4}}"), (vrq::Rect{{1, 2}, {3, 4}}));
    for (const char* bad : {"", "{1, 2}", "{{1, 2}, {3}}", "rect", "{{a, b}, {c, d}}"})
        EXPECT_FALSE(vrq::rectFromString(bad)) << bad;
}

} // namespace
