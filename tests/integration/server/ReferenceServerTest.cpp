// The reference server's back end: reconnects signed as the kit signs them,
// experience codes, and the faults a test injects, over HTTP as a person
// would. Each test has its own 127.0.0.N, since every server holds the fixed
// reconnect port of its host.
#include "ServedClient.h"
#include "support/LoopbackAddress.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <gtest/gtest.h>

using nlohmann::json;
using vrqtest::rtc::waitUntil;
using namespace std::chrono_literals;

namespace {

struct Answer {
    int status = 0;
    json body;
};

// Posts to a reconnect URL as the kit builds it; the body is the new client session's JSON text.
Answer postReconnect(const std::string& url, const std::string& body)
{
    const std::size_t pathStart = url.find('/', std::string("http://").size());
    httplib::Client http(url.substr(0, pathStart));
    http.set_read_timeout(30, 0);
    const auto response = http.Post(url.substr(pathStart).c_str(), body, "application/json");
    if (!response)
        return {};
    return {response->status, json::parse(response->body, nullptr, false)};
}

std::string offerBody(const vrqtest::KitOfferer& client)
{
    return json{{"type", "offer"}, {"sdp", client.offerSdp()}}.dump();
}

// The token the game's heartbeat replies carry, as the kit learns it.
std::string tokenFromHeartbeat(vrqtest::ServedClient& served)
{
    if (!served.client().send("hb", R"({"timestamp":1234})"))
        return "";
    const json reply = served.next("hb");
    return reply.is_object() && reply["token"].is_string() ? reply["token"].get<std::string>() : "";
}

std::string withSignature(const std::string& url, const std::string& sig)
{
    return url.substr(0, url.rfind("sig=") + 4) + sig;
}

} // namespace

TEST(ReferenceServerTest, ASignedReconnectReplacesTheSessionWithOneOfTheSameToken)
{
    const std::string host = vrqtest::loopbackAddress();
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(host)), std::nullopt);
    const std::string token = tokenFromHeartbeat(served);
    ASSERT_FALSE(token.empty());
    const auto oldSession = served.session();

    vrqtest::KitOfferer again;
    ASSERT_EQ(again.createOffer(), std::nullopt);
    const std::string url = VRQHttpHelper::reconnectUrl(host, token, "vrq-player", vrq::nowMs());
    const Answer answer = postReconnect(url, offerBody(again));
    ASSERT_EQ(answer.status, 200) << answer.body;
    ASSERT_TRUE(answer.body.is_object()) << "an object, not base64";
    EXPECT_EQ(answer.body["code"], 0);
    EXPECT_EQ(answer.body["server_ip"], host);
    EXPECT_EQ(answer.body["metric_key"], "served-metric-key");
    ASSERT_TRUE(answer.body["sdp"].is_string());
    EXPECT_TRUE(oldSession->isClosed());

    const auto newSession = served.session();
    ASSERT_NE(newSession, oldSession);
    EXPECT_EQ(newSession->token(), token);
    ASSERT_EQ(again.applyAnswer(answer.body["sdp"].get<std::string>()), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return again.allChannelsOpen() && again.frames().count() >= 5; }));
    ASSERT_TRUE(again.send("hb", R"({"timestamp":99})"));
    ASSERT_TRUE(waitUntil([&] { return !again.received("hb").empty(); }));
    EXPECT_EQ(json::parse(again.received("hb")[0].data), (json{{"timestamp", 99}, {"token", token}}));

    EXPECT_EQ(served.server().reconnectsServed(), 1u);
    const auto records = served.server().reconnectRequests();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].token, token);
    EXPECT_EQ(records[0].streamId, token);
    EXPECT_EQ(records[0].uid, vrq::base64Encode("vrq-player"));
    EXPECT_TRUE(records[0].signatureValid);
    EXPECT_EQ(records[0].status, 200);
    again.close();
}

TEST(ReferenceServerTest, AReconnectWithABadSignatureUnknownTokenOrUnreadableOfferIsRefused)
{
    const std::string host = vrqtest::loopbackAddress();
    auto options = vrqtest::referenceOptions(host);
    options.game.token = "tok&en=1/+"; // percent-encoded on the wire, signed raw
    vrqtest::ServedClient served;
    ASSERT_TRUE(served.startServer(options));
    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);
    ASSERT_EQ(vrqtest::postSession(served.server().origin(), client.clientSession()).first, 200);
    const auto session = served.session();

    const std::string url = VRQHttpHelper::reconnectUrl(host, options.game.token, "vrq-player", vrq::nowMs());
    const Answer badSignature = postReconnect(withSignature(url, std::string(32, '0')), offerBody(client));
    EXPECT_EQ(badSignature.status, 403);
    EXPECT_EQ(badSignature.body["code"], 403);
    EXPECT_TRUE(badSignature.body["msg"].is_string());
    const Answer unknown = postReconnect(VRQHttpHelper::reconnectUrl(host, "never-issued", "vrq-player", vrq::nowMs()), offerBody(client));
    EXPECT_EQ(unknown.status, 403);
    EXPECT_EQ(unknown.body["code"], 403);
    const Answer unreadable = postReconnect(url, "not json");
    EXPECT_EQ(unreadable.status, 400);
    EXPECT_EQ(unreadable.body, (json{{"code", 400}}));
    EXPECT_EQ(postReconnect(url, R"({"type":"answer","sdp":"v=0"})").status, 400);

    EXPECT_FALSE(session->isClosed()) << "a refused reconnect leaves the session alone";
    EXPECT_EQ(served.server().reconnectsServed(), 0u);
    const auto records = served.server().reconnectRequests();
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].token, options.game.token);
    const std::vector<std::pair<bool, int>> expected = {{false, 403}, {true, 403}, {true, 400}, {true, 400}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(records[i].signatureValid, expected[i].first) << i;
        EXPECT_EQ(records[i].status, expected[i].second) << i;
    }
}

TEST(ReferenceServerTest, AnExperienceCodeAnswersItsRegisteredOfferOnce)
{
    vrqtest::ServedClient served;
    ASSERT_TRUE(served.startServer(vrqtest::referenceOptions(vrqtest::loopbackAddress())));
    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);

    const json offer = {{"experience_code", "ABC123"}, {"client_session", client.clientSession()}};
    EXPECT_EQ(served.post("/ExperienceOffer", offer.dump()), (std::pair<int, std::string>(200, R"({"Code":0})")));
    const auto [status, body] = served.post("/CreateExperienceSession", R"({"experience_code":"ABC123"})");
    ASSERT_EQ(status, 200);
    const json created = json::parse(body, nullptr, false);
    ASSERT_EQ(created["Code"], 0) << body;
    ASSERT_TRUE(created["ServerSession"].is_string());
    const json remote = vrqtest::decodedRemoteSession(created["ServerSession"]);
    ASSERT_TRUE(remote["sdp"].is_string()) << remote;
    ASSERT_EQ(client.applyAnswer(remote["sdp"].get<std::string>()), std::nullopt);
    EXPECT_TRUE(waitUntil([&] { return client.frames().count() >= 5; }));

    const auto code = [&](const std::string& path, const std::string& request) {
        return json::parse(served.post(path, request).second, nullptr, false);
    };
    EXPECT_EQ(code("/CreateExperienceSession", R"({"experience_code":"ABC123"})"), (json{{"Code", 404}})) << "consumed";
    EXPECT_EQ(code("/CreateExperienceSession", R"({"experience_code":"NOPE"})"), (json{{"Code", 404}}));
    EXPECT_EQ(code("/CreateExperienceSession", "not json"), (json{{"Code", 400}}));
    EXPECT_EQ(code("/CreateExperienceSession", R"({"experience_code":""})"), (json{{"Code", 400}}));
    EXPECT_EQ(code("/ExperienceOffer", R"({"experience_code":"X","client_session":"bm90IGEgc2Vzc2lvbg=="})"), (json{{"Code", 400}}));
    client.close();
}

TEST(ReferenceServerTest, RefusedAnswersCarryCode403AndDelayedOnesComeLate)
{
    const std::string host = vrqtest::loopbackAddress();
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(host)), std::nullopt);
    const std::string token = tokenFromHeartbeat(served);
    vrqtest::KitOfferer client;
    ASSERT_EQ(client.createOffer(), std::nullopt);

    EXPECT_EQ(served.post("/control/answers?mode=refuse").first, 200);
    EXPECT_EQ(served.server().faults().answerMode(), vrqserver::AnswerMode::Refuse);
    const auto [status, body] = vrqtest::postSession(served.server().origin(), client.clientSession());
    EXPECT_EQ(status, 200);
    EXPECT_EQ(vrqtest::decodedRemoteSession(body), (json{{"code", 403}}));
    const Answer reconnect = postReconnect(VRQHttpHelper::reconnectUrl(host, token, "u", vrq::nowMs()), offerBody(client));
    EXPECT_EQ(reconnect.status, 200);
    EXPECT_EQ(reconnect.body, (json{{"code", 403}}));
    EXPECT_FALSE(served.session()->isClosed()) << "a refused reconnect keeps the old session";
    served.post("/ExperienceOffer", json{{"experience_code", "E1"}, {"client_session", client.clientSession()}}.dump());
    EXPECT_EQ(served.post("/CreateExperienceSession", R"({"experience_code":"E1"})").second, R"({"Code":403})");
    EXPECT_EQ(served.server().sessionsServed(), 1u);

    EXPECT_EQ(served.post("/control/answers?mode=delay&ms=800").first, 200);
    const auto before = std::chrono::steady_clock::now();
    const auto delayed = vrqtest::postSession(served.server().origin(), client.clientSession());
    EXPECT_GE(std::chrono::steady_clock::now() - before, 800ms);
    EXPECT_TRUE(vrqtest::decodedRemoteSession(delayed.second)["sdp"].is_string());

    EXPECT_EQ(served.post("/control/answers?mode=sometimes").first, 400);
    EXPECT_EQ(served.post("/control/answers?mode=normal").first, 200);
    EXPECT_EQ(served.server().faults().answerMode(), vrqserver::AnswerMode::Normal);
}

TEST(ReferenceServerTest, AFreezeStopsVideoOfTheLatestAndLaterSessionsButNotTheChannels)
{
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(vrqtest::loopbackAddress())), std::nullopt);
    auto& client = served.client();
    ASSERT_TRUE(waitUntil([&] { return client.frames().count() >= 10; }));
    const auto framesSettleAt = [&](int& count) {
        vrq::runMainLoopUntil([] { return false; }, 500ms); // frames on their way still arrive
        count = client.frames().count();
        vrq::runMainLoopUntil([] { return false; }, 1000ms);
        return client.frames().count() == count;
    };

    EXPECT_EQ(served.post("/control/freeze?on=1").first, 200);
    EXPECT_TRUE(served.session()->isVideoFrozen());
    int frozenAt = 0;
    EXPECT_TRUE(framesSettleAt(frozenAt)) << "frames kept coming while frozen";
    EXPECT_EQ(tokenFromHeartbeat(served).empty(), false) << "channels go on";

    vrqtest::KitOfferer later;
    ASSERT_EQ(later.createOffer(), std::nullopt);
    const auto [status, body] = vrqtest::postSession(served.server().origin(), later.clientSession());
    ASSERT_EQ(status, 200);
    ASSERT_EQ(later.applyAnswer(vrqtest::decodedRemoteSession(body)["sdp"].get<std::string>()), std::nullopt);
    EXPECT_TRUE(served.session()->isVideoFrozen());
    vrq::runMainLoopUntil([] { return false; }, 1000ms);
    EXPECT_EQ(later.frames().count(), 0) << "a session started while frozen sends no video";

    EXPECT_EQ(served.post("/control/freeze?on=0").first, 200);
    EXPECT_TRUE(waitUntil([&] { return client.frames().count() >= frozenAt + 10 && later.frames().count() >= 10; }))
        << "video resumes on every session";
    EXPECT_EQ(served.post("/control/freeze?on=yes").first, 400);
    later.close();
}

TEST(ReferenceServerTest, ADroppedPeerIsNoticedByTheClient)
{
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(vrqtest::loopbackAddress())), std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return served.client().frames().count() >= 5; }));
    const auto session = served.session();
    EXPECT_EQ(served.post("/control/drop").second, R"({"code":0})");
    EXPECT_TRUE(session->isClosed());
    const auto& events = served.client().events();
    EXPECT_TRUE(waitUntil([&] {
        return events.reached(vrq::rtc::PeerConnectionState::Disconnected) || events.reached(vrq::rtc::PeerConnectionState::Failed);
    }, 20s));
    EXPECT_EQ(served.post("/control/drop").first, 404) << "no open session left";
}

TEST(ReferenceServerTest, DisconnectCodesServerEventsAndSilencedAcksReachTheLatestSession)
{
    vrqtest::ServedClient served;
    ASSERT_EQ(served.start(vrqtest::referenceOptions(vrqtest::loopbackAddress())), std::nullopt);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(served.next("sv").is_object()) << "start event " << i;
    // Each channel opens on its own: "sv" being open says nothing of "hb".
    ASSERT_TRUE(waitUntil([&] { return served.session()->isChannelOpen("hb"); }));

    EXPECT_EQ(served.post("/control/disconnect?code=4003").first, 200);
    EXPECT_EQ(served.nextBuffer("hb").value_or(vrq::rtc::DataBuffer{}).data, R"({"code":4003})");
    EXPECT_EQ(served.post("/control/disconnect?code=kicked").first, 200);
    EXPECT_EQ(served.nextBuffer("hb").value_or(vrq::rtc::DataBuffer{}).data, R"({"code":"kicked"})");
    EXPECT_EQ(served.post("/control/sv", R"({"type":"notice","data":{"text":"hi"}})").first, 200);
    EXPECT_EQ(served.nextBuffer("sv").value_or(vrq::rtc::DataBuffer{}).data, R"({"data":{"text":"hi"},"type":"notice"})");
    EXPECT_EQ(served.post("/control/sv", "garbage").first, 400);

    auto& client = served.client();
    EXPECT_EQ(served.post("/control/acks?on=0").first, 200);
    ASSERT_TRUE(client.send("ack", R"({"seq":1,"data":{"type":"paste","content":"x"}})"));
    // Handled in order on one channel: once the game operation is recorded, the paste was handled.
    ASSERT_TRUE(client.send("ack", R"({"seq":1,"data":{"type":"game_op","op":"resume"}})"));
    ASSERT_TRUE(waitUntil([&] { return served.behaviour()->lastAck("game_op")["op"] == "resume"; }));
    EXPECT_EQ(served.post("/control/acks?on=1").first, 200);
    ASSERT_TRUE(client.send("ack", R"({"seq":2,"data":{"type":"paste","content":"x"}})"));
    EXPECT_EQ(served.nextBuffer("ack").value_or(vrq::rtc::DataBuffer{}).data, R"({"data":{"code":0,"type":"paste"},"seq":2})");
    EXPECT_EQ(served.session()->messageLog().messagesOn("ack").size(), 3u) << "silenced acks are still recorded";
}
