#include "vrq/utils/VRQDigest.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VRQDigestTest, KnownVectorsInLowerCaseHex)
{
    EXPECT_EQ(vrq_md5(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(vrq_md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(vrq_md5("The quick brown fox jumps over the lazy dog"), "9e107d9d372bb6826bd81d3542a419d6");
}

TEST(VRQDigestTest, TextEndsAtTheFirstZeroByte)
{
    EXPECT_EQ(vrq_md5(std::string("abc\0def", 7)), vrq_md5("abc"));
    EXPECT_EQ(vrq_md5(std::string("\0abc", 4)), vrq_md5(""));
}

TEST(VRQDigestTest, HashesUtf8Bytes)
{
    // "é" as UTF-8 (C3 A9).
    EXPECT_EQ(vrq_md5("\xc3\xa9"), "66ddcd97cfdeabb2f6fb8a999b4bc76f");
}

} // namespace
