#include "vrq/utils/VRQRemoteSession.h"

#include <gtest/gtest.h>

namespace {

struct ExperienceCase {
    const char* answer;
    std::optional<std::string> session;
};

class VRQExperienceAnswerTest : public ::testing::TestWithParam<ExperienceCase> {};

TEST_P(VRQExperienceAnswerTest, NamesASessionOnlyWhenCodeIsTheNumberZero)
{
    EXPECT_EQ(VRQRemoteSession::experienceSessionText(GetParam().answer), GetParam().session);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, VRQExperienceAnswerTest,
    ::testing::Values(ExperienceCase{R"({"Code":0,"ServerSession":"eyJjb2RlIjowfQ=="})", "eyJjb2RlIjowfQ=="},
                      ExperienceCase{R"({"Code":0.5,"ServerSession":"s"})", "s"},
                      ExperienceCase{R"({"Code":0,"ServerSession":{"code":0}})", ""},
                      ExperienceCase{R"({"Code":0})", ""}, ExperienceCase{R"({"Code":"0","ServerSession":"s"})", std::nullopt},
                      ExperienceCase{R"({"Code":3,"ServerSession":"s"})", std::nullopt},
                      ExperienceCase{R"({"ServerSession":"s"})", std::nullopt},
                      ExperienceCase{"<html>502</html>", std::nullopt}, ExperienceCase{"", std::nullopt}));

TEST(VRQRemoteSessionTest, ReconnectAnswerIsTheSessionObjectItself)
{
    const auto answer = VRQRemoteSession::fromJsonText(
        R"({"code":0,"sdp":"v=0\r\n","screen_config":{"orientation":"portrait"},"server_ip":"127.0.0.5","app_id":7})");
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.sdp, "v=0\r\n");
    EXPECT_EQ(answer.screenConfig, (nlohmann::json{{"orientation", "portrait"}}));
    EXPECT_EQ(answer.serverIp, "127.0.0.5");
    EXPECT_EQ(answer.appId, 7);

    // Text that is no object is an answer without an SDP.
    for (const char* text : {"", "[1]", "{\"sdp\":", "\"v=0\""}) {
        const auto none = VRQRemoteSession::fromJsonText(text);
        EXPECT_EQ(none.code, -1) << text;
        EXPECT_TRUE(none.sdp.empty()) << text;
        EXPECT_EQ(none.dictionary, nlohmann::json::object()) << text;
    }
}

} // namespace
