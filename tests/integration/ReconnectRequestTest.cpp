// The reconnect request reaches port 7392 of the game server, signed with MD5.
#include "support/LoopbackAddress.h"
#include "support/LoopbackHttpServer.h"
#include "support/Shell.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <gtest/gtest.h>

#include <httplib.h>

#include <map>

using namespace std::chrono_literals;

namespace {

std::map<std::string, std::string> queryOf(const vrqtest::RecordedRequest& request)
{
    std::map<std::string, std::string> values;
    httplib::Params params;
    httplib::detail::parse_query_text(request.query, params);
    for (const auto& [name, value] : params)
        values[name] = value;
    return values;
}

std::string opensslMd5(const std::string& text)
{
    const std::string out = vrqtest::runCommand("printf '%s' " + vrqtest::shellQuote(text) + " | openssl dgst -md5 -r");
    return out.substr(0, out.find(' '));
}

TEST(ReconnectRequestTest, PostsTheOfferToPort7392WithAnIndependentlyCheckableSignature)
{
    const std::string host = vrqtest::loopbackAddress();
    vrqtest::LoopbackHttpServer server(host, VRQHttpHelper::kReconnectPort);
    ASSERT_TRUE(server.valid()) << "port 7392 on " << host << " is taken";
    server.setHandler("/cloud_gaming/reconnect", [](const auto&, auto& response) {
        response.set_content(R"({"code":0,"sdp":"v=0"})", "application/json");
    });

    const std::string token = "tok&en=1/+";
    std::string answer;
    VRQHttpHelper::requestNewRemoteSdpAtServerIp(host, token, "u1", "{\"sdp\":\"offer\"}",
                                                 [&](auto error, std::string body) {
                                                     EXPECT_FALSE(error);
                                                     answer = body;
                                                 });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !answer.empty(); }, 5s));
    EXPECT_EQ(answer, R"({"code":0,"sdp":"v=0"})");

    const auto posts = server.requestsTo("/cloud_gaming/reconnect");
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(posts[0].body, "{\"sdp\":\"offer\"}");
    auto query = queryOf(posts[0]);
    EXPECT_EQ(query["token"], token) << "escaped on the wire, intact after decoding";
    EXPECT_EQ(query["stream_id"], token);
    EXPECT_EQ(query["uid"], "dTE=");
    const std::string ts = query["ts"];
    ASSERT_FALSE(ts.empty());
    EXPECT_LE(std::llabs(std::stoll(ts) - vrq::nowMs()), 10000);
    EXPECT_EQ(query["sig"], opensslMd5(token + ts + token));
}

TEST(ReconnectRequestTest, UrlKeepsTheProtocolsOrderOfMembers)
{
    const std::string url = VRQHttpHelper::reconnectUrl("10.1.2.3", "abc", "u1", 1700000000000);
    EXPECT_EQ(url, "http://10.1.2.3:7392/cloud_gaming/reconnect?token=abc&stream_id=abc&ts=1700000000000"
                   "&uid=dTE%3D&sig="
                       + opensslMd5("abc1700000000000abc"));
}

} // namespace
