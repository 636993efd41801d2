#include "vrq/utils/VRQRedaction.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Case {
    const char* text;
    const char* redacted;
};

class VRQRedactionTest : public ::testing::TestWithParam<Case> {};

TEST_P(VRQRedactionTest, HidesSecretValuesAndKeepsEverythingElse)
{
    EXPECT_EQ(vrq_redactedText(GetParam().text), GetParam().redacted);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, VRQRedactionTest,
    ::testing::Values(
        Case{R"({"code":0,"metric_key":"k3y","token":"t0k","user_id":"u1"})", R"({"code":0,"metric_key":"***","token":"***","user_id":"u1"})"},
        Case{R"({ "token" : "a\"b\\", "sdp": "v=0" })", R"({ "token" : "***", "sdp": "v=0" })"},
        Case{R"({"token":7,"tokens":"x","my_token":"y"})", R"({"token":7,"tokens":"x","my_token":"y"})"},
        Case{R"({"token":"unterminated)", R"({"token":"***)"},
        Case{"http://10.0.0.1:7392/cloud_gaming/reconnect?token=T&stream_id=T&ts=5&uid=u&sig=abc",
             "http://10.0.0.1:7392/cloud_gaming/reconnect?token=***&stream_id=***&ts=5&uid=u&sig=***"},
        Case{"post url:http://h/r?mytoken=1&xsig=2 failed", "post url:http://h/r?mytoken=1&xsig=2 failed"},
        Case{"", ""}));

TEST(VRQRedactionTest, ASecretShowsOnlyWhetherItWasThere)
{
    EXPECT_EQ(vrq_redacted("0123456789abcdef"), "***");
    EXPECT_EQ(vrq_redacted(""), "");
}

} // namespace
