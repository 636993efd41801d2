// The remote touch screen turning fingers, fed to a window, into
// "event_touch" messages with their finger ids.
#include "support/InputCapture.h"
#include "vrq/control/VRQRemoteTouchScreen.h"
#include "vrq/platform/views/Window.h"

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

class RemoteTouchScreenTest : public ::testing::Test {
protected:
    void SetUp() override { m_window->addSubview(m_screen); }

    // Each message as "event_type:finger_id".
    std::vector<std::string> fingers() const
    {
        std::vector<std::string> lines;
        for (const auto& message : m_capture.sent())
            lines.push_back(std::to_string(message.value("event_type", -1)) + ":" + std::to_string(message.value("finger_id", -1)));
        return lines;
    }

    vrqtest::InputCapture m_capture;
    std::shared_ptr<vrq::Window> m_window = std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, {800, 600}});
    std::shared_ptr<VRQRemoteTouchScreen> m_screen =
        std::make_shared<VRQRemoteTouchScreen>(vrq::Rect{{0, 0}, {390.25, 600}}, m_capture.controller());
};

TEST_F(RemoteTouchScreenTest, EachFingerEventIsOneMessageWithItsValues)
{
    m_window->touchDown(5, {100.456, 200}, 12.5);
    m_window->touchMove(5, {-5, 700}, 12.75);
    m_window->touchUp(5, {390.25, 0.0005}, 13.0);
    const auto sent = m_capture.sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].dump(), R"({"event_type":0,"finger_id":0,"height":600.0,"pressure":1,"timestamp":12.5,"touch_id":0,)"
                              R"("type":"event_touch","width":390.3,"x":100.46,"y":200.0})");
    // Below 0.001 it is 0; at or past the view's size it is that size.
    EXPECT_EQ(sent[1]["x"], 0);
    EXPECT_EQ(sent[1]["y"], 600.0);
    EXPECT_EQ(sent[1]["event_type"], 1);
    EXPECT_EQ(sent[2]["x"], 390.3);
    EXPECT_EQ(sent[2]["y"], 0);
    EXPECT_EQ(sent[2]["event_type"], 2);
    EXPECT_EQ(sent[2]["timestamp"], 13.0);
}

TEST_F(RemoteTouchScreenTest, FingerIdsAreTheLowestFreeAndComeBackAfterALift)
{
    m_window->touchDown(1, {10, 10}, 1);
    m_window->touchDown(2, {20, 10}, 1);
    m_window->touchUp(1, {10, 10}, 2);
    m_window->touchDown(3, {30, 10}, 3);
    m_window->touchMove(2, {25, 10}, 4);
    m_window->touchCancel(3, 5);
    EXPECT_EQ(fingers(), (std::vector<std::string>{"0:0", "0:1", "2:0", "0:0", "1:1", "2:0"}));
}

// The eleventh finger takes id 9 from the tenth, and the tenth takes it back.
TEST_F(RemoteTouchScreenTest, AnEleventhFingerSharesTheLastId)
{
    for (std::uint64_t finger = 0; finger < 11; ++finger)
        m_window->touchDown(finger, {10.0 + static_cast<double>(finger) * 30, 10}, 1);
    m_window->touchMove(9, {300, 50}, 2);
    m_window->touchMove(10, {320, 50}, 3);
    auto sent = fingers();
    ASSERT_EQ(sent.size(), 13u);
    EXPECT_EQ(sent[9], "0:9");
    EXPECT_EQ(sent[10], "0:9");
    EXPECT_EQ(sent[11], "1:9");
    EXPECT_EQ(sent[12], "1:9");
}

TEST_F(RemoteTouchScreenTest, ItsSizeFollowsItsFrameToATenthInSinglePrecision)
{
    m_screen->vrq_setW(1024.06);
    EXPECT_EQ(m_screen->maxWidth(), 1024.1f);
    m_screen->setFrame({{0, 0}, {0, 0}});
    m_window->touchDown(1, {0, 0}, 1);
    ASSERT_EQ(m_capture.sent().size(), 0u) << "a view of no size is hit by nothing";
}

} // namespace
