// Input as the game server receives it, and the request/reply operations
// answered by the reference game.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/core/VRQGameController.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class RecordingController : public VRQGameControllerDelegate {
public:
    void onCursorVisibleChanged(bool visible) override { events.push_back("visible:" + std::to_string(visible)); }
    void onClickedTextField(std::int64_t result) override { events.push_back("text_field:" + std::to_string(result)); }
    void onAutoLoginFinish(std::int32_t status) override { events.push_back("login:" + std::to_string(status)); }
    void onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& image, vrq::Rect frame) override
    {
        events.push_back("cursor:" + std::to_string(image->width()) + ":" + vrq::stringFromRect(frame));
    }
    bool has(const std::string& event) const { return std::find(events.begin(), events.end(), event) != events.end(); }
    std::vector<std::string> events; // main thread only
};

class GameInputTest : public ::testing::Test {
protected:
    // Each test gets a host of its own: tests run side by side, and the
    // reconnect port is the same on every host.
    static std::string hostForThisTest() { return vrqtest::loopbackAddress(); }

    void SetUp() override
    {
        ASSERT_TRUE(m_session.ready());
        m_session.player->gameController()->setControlDelegate(m_delegate);
        ASSERT_TRUE(m_session.play());
    }

    // Waits until the server holds n messages on the label and returns them.
    std::vector<json> waitForMessages(const std::string& label, std::size_t n)
    {
        m_session.waitFor([&] { return m_session.received(label).size() >= n; }, 5s);
        return m_session.received(label);
    }

    vrqtest::PlayerSession m_session{hostForThisTest()};
    std::shared_ptr<RecordingController> m_delegate = std::make_shared<RecordingController>();
};

TEST_F(GameInputTest, EveryInputMessageHasItsWireFormAndChannel)
{
    auto controller = m_session.player->gameController();
    const std::int64_t before = vrq::nowMs();
    controller->clickKeyboard(65, true);
    controller->remoteMobileBackClick();
    controller->remoteMobileHomeClick();
    controller->clickGamepadKey(4096, false);
    controller->turnJoyStick(0.5, -1.0, true);
    controller->turnJoyStick(1.0, -0.99999, false);
    controller->enableVirtualGamepad(true);
    controller->enableVirtualGamepad(false);
    controller->mouseMoveTo(4096.5, 100);
    controller->mouseDeltaMove(-2.25, 3);
    controller->clickMouseIsLeft(false, true);
    controller->clickMouseMiddleKey(false);
    controller->mouseScroll(-1.5);
    controller->setCursorShowMode(2);
    controller->clickMouseIsLeft(true, false);
    controller->resetRemoteKeycode();
    m_session.player->setStreamBitrateMix(8000, 2000, 60);
    m_session.player->restartGame();

    const std::vector<json> km = {
        {{"type", "keyboard"}, {"key", 65}, {"down", true}},
        {{"type", "keyboard"}, {"key", 158}, {"down", true}},
        {{"type", "keyboard"}, {"key", 158}, {"down", false}},
        {{"type", "keyboard"}, {"key", 172}, {"down", true}},
        {{"type", "keyboard"}, {"key", 172}, {"down", false}},
        {{"type", "gamepadkey"}, {"key", 4096}, {"down", false}},
        {{"type", "axisleft"}, {"x", 16383}, {"y", -32767}},
        {{"type", "axisright"}, {"x", 32767}, {"y", -32766}},
        {{"type", "gamepadconnect"}},
        {{"type", "gamepadkey"}, {"key", 16}, {"down", true}},
        {{"type", "gamepadkey"}, {"key", 16}, {"down", false}},
        {{"type", "gamepaddisconnect"}},
        {{"type", "mousemove_v2"}, {"x", 4096.5}, {"y", 100.0}},
        {{"type", "mousedeltamove_v2"}, {"x", -2.25}, {"y", 3.0}},
        {{"type", "mouseright"}, {"down", true}},
        {{"type", "mousemiddle"}, {"down", false}},
        {{"type", "mousescroll"}, {"delta", -1.5}},
        {{"type", "mousedeltamove"}, {"x", 1}, {"y", 0}},
    };
    EXPECT_EQ(waitForMessages("km", km.size()), km);
    const auto ack = waitForMessages("ack", 5);
    ASSERT_EQ(ack.size(), 5u);
    const std::vector<json> ackData = {
        {{"type", "set_cursor"}, {"show", 2}},
        {{"type", "mouseleft"}, {"down", false}},
        {{"type", "keys_clean"}},
        {{"type", "res_mode"}, {"min_bitrate", 8000}, {"max_bitrate", 2000}, {"fps", 60}, {"unit", "Kbps"}},
        {{"type", "game_op"}, {"op", "restart"}},
    };
    for (std::size_t i = 0; i < ack.size(); ++i) {
        EXPECT_EQ(ack[i]["data"], ackData[i]);
        // These carry the time as their sequence number.
        EXPECT_GE(ack[i]["seq"].get<std::int64_t>(), before);
        EXPECT_LE(ack[i]["seq"].get<std::int64_t>(), vrq::nowMs());
    }
    // Integers stay integers and flags stay booleans on the wire.
    const auto raw = m_session.serverSession()->messageLog().messagesOn("km");
    EXPECT_EQ(raw.front().bytes, R"({"down":true,"key":65,"type":"keyboard"})");
}

TEST_F(GameInputTest, RequestsGetTheirRepliesAndTheFirstCarriesSequence10000)
{
    auto controller = m_session.player->gameController();
    std::vector<int> results;
    controller->asyncCheckRemoteCapsLock([&](std::int32_t result) { results.push_back(result); });
    ASSERT_TRUE(m_session.waitFor([&] { return results.size() == 1; }));
    EXPECT_EQ(m_session.received("ack").front()["seq"], 10000);

    controller->clickKeyboard(20, true); // caps lock, on another channel: let it land first
    waitForMessages("km", 1);
    // Replies are handled on a concurrent queue, so each request keeps its own result.
    std::optional<int> capsLock, paste, login;
    controller->asyncCheckRemoteCapsLock([&](std::int32_t result) { capsLock = result; });
    controller->asyncPasteText("hello", [&](std::int32_t result) { paste = result; });
    controller->asyncPasteText("", [&](std::int32_t) { results.push_back(-100); });
    controller->asyncAutoLogin("player", "secret", [&](std::int32_t result) { login = result; });
    ASSERT_TRUE(m_session.waitFor([&] { return capsLock && paste && login && m_delegate->has("login:0"); }));
    EXPECT_EQ(results, std::vector<int>{0});
    EXPECT_EQ(*capsLock, 1);
    EXPECT_EQ(*paste, 0);
    EXPECT_EQ(*login, 0);
    const auto ack = m_session.received("ack");
    EXPECT_EQ(ack[1]["seq"], 10001);
    EXPECT_EQ(ack[3]["data"], json({{"type", "auto_login"}, {"user_name", "player"}, {"psw", "secret"}, {"timeout", 10}}));

    controller->clickMouseIsLeft(true, true);
    ASSERT_TRUE(m_session.waitFor([&] { return m_delegate->has("text_field:0"); }));
    controller->cancleAutoLogin();
    EXPECT_EQ(waitForMessages("ack", 6).back()["data"], json({{"type", "cancel_auto_login"}}));
}

TEST_F(GameInputTest, WithoutAcksRequestsTimeOutWithTheirMappedResults)
{
    m_session.server->faults().setAcksAnswered(false);
    m_session.player->setConnectTimeout(0.5);
    auto controller = m_session.player->gameController();
    std::vector<int> results;
    std::mutex mutex; // timeouts arrive off the main thread
    auto record = [&](std::int32_t result) {
        std::lock_guard lock(mutex);
        results.push_back(result);
    };
    controller->asyncCheckRemoteCapsLock(record);
    controller->asyncPasteText("text", record);
    controller->asyncAutoLogin("player", "secret", record);
    ASSERT_TRUE(m_session.waitFor([&] {
        std::lock_guard lock(mutex);
        return results.size() == 3;
    }, 5s));
    std::sort(results.begin(), results.end());
    EXPECT_EQ(results, (std::vector<int>{-9, -2, -1}));
    EXPECT_TRUE(m_session.logs.contains("ack handle error:VRQSDK 10021"));
}

TEST_F(GameInputTest, CursorImagesAreAcknowledgedAndUnknownKeysAskedFor)
{
    ASSERT_TRUE(m_session.waitFor([&] { return !m_delegate->events.empty(); }));
    EXPECT_EQ(m_delegate->events.front().rfind("cursor:", 0), 0u);
    const auto cd = waitForMessages("cd", 1);
    EXPECT_EQ(cd.front(), json({{"type", "ack"}, {"data_type", "mouse"}, {"data_key", "arrow-1"}}));

    auto server = m_session.serverSession();
    ASSERT_TRUE(server->send("cd", R"({"data_type":"mouse","data_key":"arrow-1"})"));
    ASSERT_TRUE(server->send("cd", R"({"data_type":"mouse","data_key":"not-sent-yet"})"));
    ASSERT_TRUE(server->send("cd", R"({"data_type":"keyboard","data_key":"ignored"})"));
    const auto replies = waitForMessages("cd", 2);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1], json({{"type", "nack"}, {"data_type", "mouse"}, {"data_key", "not-sent-yet"}}));
    ASSERT_TRUE(m_session.waitFor([&] { return m_delegate->events.size() >= 2; }));
    EXPECT_EQ(m_delegate->events[1], m_delegate->events[0]); // served from the cache
}

} // namespace
