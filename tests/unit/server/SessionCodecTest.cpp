#include "SessionCodec.h"

#include "vrq/platform/services/Crypto.h"
#include "vrq/utils/VRQJsonHelpers.h"

#include <gtest/gtest.h>

using nlohmann::json;

namespace {

const std::string kOfferSdp = "v=0\r\no=- 1 0 IN IP4 0.0.0.0\r\ns=-\r\nt=0 0\r\nm=video 9 UDP/TLS/RTP/SAVPF 102\r\n";

std::string clientSessionText(const json& object)
{
    return vrq::base64Encode(object.dump());
}

TEST(SessionCodecTest, ReadsTheClientSessionTheKitSends)
{
    const json client = {{"type", "offer"},   {"sdp", kOfferSdp},         {"isPlanB", false},
                         {"payloadType", 102}, {"profile", "level-asymmetry-allowed=1;packetization-mode=1;profile-level-id=42e01f"},
                         {"sdkType", "IOS"},   {"sdkVersion", "1.1.7.20"}};
    const auto session = vrqserver::decodeClientSession(clientSessionText(client));
    ASSERT_TRUE(session);
    EXPECT_EQ(session->sdp, kOfferSdp);
    EXPECT_EQ(session->object, client);
}

class SessionCodecRefusalTest : public ::testing::TestWithParam<std::string> {};

TEST_P(SessionCodecRefusalTest, IsNotAClientSession)
{
    EXPECT_FALSE(vrqserver::decodeClientSession(GetParam())) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(
    Unreadable, SessionCodecRefusalTest,
    ::testing::Values(std::string(), std::string("abc"), json{{"type", "offer"}, {"sdp", "v=0"}}.dump(),
                      clientSessionText(json::array({1})), clientSessionText(json{{"type", "answer"}, {"sdp", "v=0"}}),
                      clientSessionText(json{{"type", "offer"}}), clientSessionText(json{{"type", "offer"}, {"sdp", ""}}),
                      clientSessionText(json{{"type", "offer"}, {"sdp", 5}}), clientSessionText(json{{"sdp", "v=0"}}),
                      vrq::base64Encode("{\"type\":\"offer\",\"sdp\":")));

TEST(SessionCodecTest, RemoteSessionReadsBackAsThePlayerReadsIt)
{
    vrqserver::RemoteSessionFields fields;
    fields.metricKey = "metric-key";
    fields.serverIp = "127.0.0.3";
    const std::string text = vrqserver::encodeRemoteSession(vrqserver::makeRemoteSession(kOfferSdp, fields, "req-7"));
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);

    const auto bytes = vrq::base64Decode(text);
    ASSERT_TRUE(bytes);
    const auto session = vrq_dictionaryWithJsonObject(*bytes);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->size(), 10u) << session->dump();
    EXPECT_EQ(vrq_longForKey(*session, "code", -1), 0);
    EXPECT_EQ(vrq_stringForKey(*session, "sdp", std::nullopt), kOfferSdp);
    EXPECT_EQ(vrq_stringForKey(*session, "metric_key", std::nullopt), "metric-key");
    EXPECT_EQ(vrq_dictionaryForKey(*session, "screen_config", json::object()), (json{{"orientation", "landscape"}}));
    EXPECT_EQ(vrq_stringForKey(*session, "server_ip", std::nullopt), "127.0.0.3");
    EXPECT_EQ(vrq_stringForKey(*session, "region", std::nullopt), "loopback");
    EXPECT_EQ(vrq_stringForKey(*session, "request_id", std::nullopt), "req-7");
    for (const char* key : {"user_id", "game_id"})
        EXPECT_FALSE(vrq_stringForKey(*session, key, "").value_or("").empty()) << key;
    EXPECT_TRUE(vrq_numberForKey(*session, "app_id", nullptr).is_number_integer()) << "the kit reads app_id as a number";
}

} // namespace
