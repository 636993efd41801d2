// The controller's handling of the remote side's input-related messages and
// its request results, without a server.
#include "support/CapturingLogDelegate.h"
#include "support/TempHome.h"
#include "support/TestImages.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/Crypto.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

class RecordingControllerDelegate : public VRQGameControllerDelegate {
public:
    void onCursorVisibleChanged(bool visible) override { events.push_back("visible:" + std::to_string(visible)); }
    void onClickedTextField(std::int64_t result) override { events.push_back("text_field:" + std::to_string(result)); }
    void onRemoteInputStatus(bool enabled) override { events.push_back("input:" + std::to_string(enabled)); }
    void onAutoLoginFinish(std::int32_t status) override { events.push_back("login:" + std::to_string(status)); }
    void onCursorImageUpdated(const std::shared_ptr<const vrq::Image>& image, vrq::Rect frame) override
    {
        images.push_back(image);
        frames.push_back(frame);
    }
    std::vector<std::string> events; // main thread only
    std::vector<std::shared_ptr<const vrq::Image>> images;
    std::vector<vrq::Rect> frames;
};

class ControllerTest : public ::testing::Test {
protected:
    void SetUp() override { m_controller->setControlDelegate(m_delegate); }

    static void settle() { vrq::runMainLoopUntil([] { return false; }, 50ms); }

    static json cursorMessage(const std::string& key, const std::string& data, double hx, double hy)
    {
        return {{"data_type", "mouse"}, {"data_key", key}, {"data", data}, {"hotspotx_v2", hx},
                {"hotspoty_v2", hy},    {"width_v2", 16},  {"height_v2", 24}};
    }

    vrqtest::TempHome m_home;
    std::shared_ptr<VRQGameController> m_controller = std::make_shared<VRQGameController>();
    std::shared_ptr<RecordingControllerDelegate> m_delegate = std::make_shared<RecordingControllerDelegate>();
};

TEST_F(ControllerTest, RemoteStatusMessagesBecomeDelegateCallsOnTheMainThread)
{
    m_controller->handleMouseCursorStateMsg({{"state", "showing"}});
    m_controller->handleMouseCursorStateMsg({{"state", "hidden"}});
    m_controller->handleClickedTextFieldMsg({{"status", "disabled"}, {"hit_input", true}});
    m_controller->handleClickedTextFieldMsg({{"enable_auto_login", true}, {"hit_input", true}});
    m_controller->handleClickedTextFieldMsg({{"hit_input", true}});
    m_controller->handleClickedTextFieldMsg({{"hit_input", false}});
    m_controller->handleClickedTextFieldMsg({{"hit_input", "true"}});
    m_controller->handleRemoteInputStatusMsg({{"status", "enabled"}});
    m_controller->handleRemoteInputStatusMsg({{"status", "disabled"}});
    m_controller->handleRemoteInputStatusMsg({{"status", "maybe"}});
    m_controller->handleAutoLoginStatusMsg({{"user_id", "u"}});
    m_controller->handleAutoLoginStatusMsg({{"status", 0}});
    EXPECT_TRUE(m_delegate->events.empty()); // nothing before the main loop runs
    settle();
    EXPECT_EQ(m_delegate->events,
              (std::vector<std::string>{"visible:1", "visible:0", "text_field:99", "text_field:1", "text_field:0",
                                        "input:1", "input:0", "login:1", "login:0"}));
}

TEST_F(ControllerTest, ACursorImageIsCachedWithItsHotspotFrameAndReusedByKey)
{
    const std::string png = vrq::base64Encode(vrqtest::makePng(16, 24));
    m_controller->handleMouseCursorImageMsg(cursorMessage("arrow", png, 3, 0.001));
    m_controller->handleMouseCursorImageMsg(cursorMessage("beam", png, 0.0011, -2));
    m_controller->handleMouseCursorImageMsg({{"data_type", "mouse"}, {"data_key", "arrow"}});
    settle();
    ASSERT_EQ(m_delegate->frames.size(), 3u);
    EXPECT_EQ(m_delegate->frames[0], (vrq::Rect{{-3, 0.001}, {16, 24}}));
    EXPECT_EQ(m_delegate->frames[1], (vrq::Rect{{-0.0011, -2}, {16, 24}}));
    EXPECT_EQ(m_delegate->frames[2], m_delegate->frames[0]);
    EXPECT_EQ(m_delegate->images[2], m_delegate->images[0]);
    EXPECT_EQ(m_delegate->images[0]->width(), 16);
    EXPECT_EQ(m_delegate->images[0]->height(), 24);
    EXPECT_EQ(m_controller->cursorImageCacheSize(), 2u);
}

TEST_F(ControllerTest, BadOrUnknownCursorImagesNeverReachTheDelegate)
{
    vrqtest::CapturingLogDelegate logs;
    VRQGamePlayer::setLogger(&logs, 0);
    m_controller->handleMouseCursorImageMsg(cursorMessage("garbage", vrq::base64Encode("not a png"), 1, 1));
    m_controller->handleMouseCursorImageMsg(cursorMessage("not-base64", "@@@", 1, 1));
    m_controller->handleMouseCursorImageMsg({{"data_type", "mouse"}, {"data_key", "never-seen"}});
    m_controller->handleMouseCursorImageMsg({{"data_type", "mouse"}, {"data_key", 5}, {"data", 7}});
    settle();
    VRQGamePlayer::setLogger(nullptr, 4);
    EXPECT_TRUE(m_delegate->frames.empty());
    EXPECT_EQ(m_controller->cursorImageCacheSize(), 0u);
    EXPECT_TRUE(logs.contains("receive bad message"));
    EXPECT_TRUE(logs.contains("lost cursor image data_key:never-seen"));
}

TEST_F(ControllerTest, TheHundredAndFirstImageEmptiesTheCacheFirst)
{
    const std::string png = vrq::base64Encode(vrqtest::makePng(2, 2));
    for (int i = 0; i < 100; ++i)
        m_controller->handleMouseCursorImageMsg(cursorMessage("k" + std::to_string(i), png, 0, 0));
    EXPECT_EQ(m_controller->cursorImageCacheSize(), 100u);
    m_controller->handleMouseCursorImageMsg(cursorMessage("k100", png, 0, 0));
    EXPECT_EQ(m_controller->cursorImageCacheSize(), 1u);
}

TEST_F(ControllerTest, AutoLoginWithoutCredentialsFailsAtOnce)
{
    std::vector<int> results;
    m_controller->asyncAutoLogin("", "secret", [&](std::int32_t result) { results.push_back(result); });
    m_controller->asyncAutoLogin("user", "", [&](std::int32_t result) { results.push_back(result); });
    // Without a player the other requests are dropped and never answered.
    m_controller->asyncAutoLogin("user", "secret", [&](std::int32_t result) { results.push_back(result); });
    m_controller->asyncCheckRemoteCapsLock([&](std::int32_t result) { results.push_back(result); });
    settle();
    EXPECT_EQ(results, (std::vector<int>{-10, -10}));
}

} // namespace
