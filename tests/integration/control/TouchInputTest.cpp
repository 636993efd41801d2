// Touches on a window holding the remote touch screen and the virtual mouse
// cursor over the video, as the reference game receives them.
#include "integration/core/PlayerSession.h"
#include "support/LoopbackAddress.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/control/VRQRemoteTouchScreen.h"
#include "vrq/control/VRQVirtualMouseCursor.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/platform/views/Window.h"

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class TouchInputTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_session.ready());
        ASSERT_TRUE(m_session.play());
        const vrq::Rect screen{{0, 0}, {1280, 720}};
        auto controller = m_session.player->gameController();
        m_touchScreen = std::make_shared<VRQRemoteTouchScreen>(screen, controller);
        m_cursor = std::make_shared<VRQVirtualMouseCursor>(screen, controller);
        controller->setMouseCursor(m_cursor);
        m_window->addSubview(m_session.player->videoView());
        m_window->addSubview(m_touchScreen);
        m_window->addSubview(m_cursor);
    }

    std::vector<json> waitFor(const std::string& label, std::size_t count)
    {
        m_session.waitFor([&] { return m_session.received(label).size() >= count; }, 5s);
        return m_session.received(label);
    }

    vrqtest::PlayerSession m_session{vrqtest::loopbackAddress()};
    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {1280, 720}});
    std::shared_ptr<VRQRemoteTouchScreen> m_touchScreen;
    std::shared_ptr<VRQVirtualMouseCursor> m_cursor;
};

TEST_F(TouchInputTest, FingersAndTheCursorReachTheGameAsTheirMessagesInOrder)
{
    // The touch screen takes the fingers while the cursor is hidden.
    m_cursor->setHidden(true);
    m_window->touchDown(1, {100, 100}, 10.0);
    m_window->touchDown(2, {200.126, 150}, 10.5);
    m_window->touchMove(1, {110, 100}, 11.0);
    m_window->touchUp(2, {200.126, 150}, 11.5);
    m_window->touchUp(1, {1300, 100}, 12.0);

    // Then the cursor: absolute mode, and first-person mode.
    m_cursor->setHidden(false);
    m_cursor->setCursorIsShow(true);
    m_window->touchDown(3, {640, 360}, 13.0);
    m_window->touchMove(3, {700, 360}, 13.5);
    m_window->touchUp(3, {700, 360}, 14.0);
    m_cursor->setCursorIsShow(false);
    m_window->touchDown(4, {640, 360}, 15.0);
    m_window->touchMove(4, {643, 357}, 15.5);
    m_window->touchUp(4, {643, 357}, 16.0);

    const auto touch = [](int finger, int type, double x, double y, double time) {
        return json{{"type", "event_touch"}, {"touch_id", 0}, {"finger_id", finger}, {"event_type", type}, {"x", x},
                    {"y", y},                {"width", 1280.0}, {"height", 720.0},   {"pressure", 1},     {"timestamp", time}};
    };
    const std::vector<json> expectedKm = {
        touch(0, 0, 100, 100, 10.0),
        touch(1, 0, 200.13, 150, 10.5),
        touch(0, 1, 110, 100, 11.0),
        touch(1, 2, 200.13, 150, 11.5),
        touch(0, 2, 1280, 100, 12.0),
        {{"type", "mousemove_v2"}, {"x", 4096.0}, {"y", 4096.0}},
        {{"type", "mousemove_v2"}, {"x", 4480.0}, {"y", 4096.0}},
        {{"type", "mousedeltamove_v2"}, {"x", 19.0}, {"y", -34.0}},
    };
    const auto km = waitFor("km", expectedKm.size());
    ASSERT_EQ(km.size(), expectedKm.size());
    for (std::size_t i = 0; i < km.size(); ++i)
        EXPECT_EQ(km[i], expectedKm[i]) << "message " << i;

    const auto ack = waitFor("ack", 2);
    ASSERT_EQ(ack.size(), 2u) << "first-person mode presses nothing";
    EXPECT_EQ(ack[0]["data"], (json{{"type", "mouseleft"}, {"down", true}}));
    EXPECT_EQ(ack[1]["data"], (json{{"type", "mouseleft"}, {"down", false}}));
}

} // namespace
