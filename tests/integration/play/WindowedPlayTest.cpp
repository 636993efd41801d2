// vrq-play in a real window on an X server of the test's own: keys, the mouse
// and fingers reach the game as the kit's messages, exactly, and the window
// shows the letterboxed video with the on-screen gamepad over it.
#include "support/ChildProcess.h"
#include "support/LoopbackAddress.h"
#include "support/Sanitizers.h"
#include "support/TempHome.h"
#include "support/XServer.h"

#include "ReferenceServer.h"
#include "vrq/VRQVKey/button/VRQVGamepadUtil.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/views/Image.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifdef VRQ_TOOL_vrq_play

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// A 4:3 picture in a 16:9 window: it is 960 x 720, with 160-point bars left and right.
constexpr int kPictureLeft = 160;
constexpr int kPictureWidth = 960;
// pad.json's "gamepad_a" (-270, 690, 120 x 120 of a 1920-wide screen) on a 1280-wide window.
constexpr int kButtonALeft = 1100;
constexpr int kButtonATop = 460;
constexpr int kButtonASize = 80;

struct Rgb {
    int red, green, blue;
};

Rgb pixel(const vrq::Image& image, int x, int y)
{
    const auto at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width()) + static_cast<std::size_t>(x)) * 4;
    return {image.rgba()[at], image.rgba()[at + 1], image.rgba()[at + 2]};
}

bool near(Rgb a, Rgb b, int tolerance)
{
    return std::abs(a.red - b.red) <= tolerance && std::abs(a.green - b.green) <= tolerance &&
           std::abs(a.blue - b.blue) <= tolerance;
}

std::string describe(Rgb colour)
{
    return "(" + std::to_string(colour.red) + ", " + std::to_string(colour.green) + ", " + std::to_string(colour.blue) + ")";
}

// Black bars beside the picture, and the colour bars' seven colours across its upper part.
void expectLetterboxedBars(const vrq::Image& window)
{
    for (const auto& [x, y] : {std::pair{60, 300}, std::pair{1220, 250}, std::pair{150, 200}, std::pair{1130, 200}})
        EXPECT_TRUE(near(pixel(window, x, y), {0, 0, 0}, 16)) << "letterbox at " << x << "," << y << ": " << describe(pixel(window, x, y));
    const Rgb bars[7] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0}, {255, 0, 255}, {255, 0, 0}, {0, 0, 255}};
    for (int i = 0; i < 7; ++i) {
        const int x = kPictureLeft + kPictureWidth * (2 * i + 1) / 14;
        EXPECT_TRUE(near(pixel(window, x, 250), bars[i], 40)) << "bar " << i << " at x " << x << ": " << describe(pixel(window, x, 250));
    }
}

struct Rgba {
    int red, green, blue, alpha;
};

Rgba texel(const vrq::Image& image, int x, int y)
{
    const auto at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width()) + static_cast<std::size_t>(x)) * 4;
    return {image.rgba()[at], image.rgba()[at + 1], image.rgba()[at + 2], image.rgba()[at + 3]};
}

bool same(Rgba a, Rgba b)
{
    return std::abs(a.red - b.red) <= 4 && std::abs(a.green - b.green) <= 4 && std::abs(a.blue - b.blue) <= 4 &&
           std::abs(a.alpha - b.alpha) <= 4;
}

// The image drawn into a square of the window, over black from window x
// `blackFrom` on: where the image is even (so that scaling cannot blur it),
// the window shows its colour over black.
void expectImageAt(const vrq::Image& window, const vrq::Image& image, int left, int top, int size, int blackFrom)
{
    int checked = 0;
    int visible = 0;
    const int step = std::max(1, image.width() / 32);
    for (int y = step; y + step < image.height(); y += step) {
        for (int x = step; x + step < image.width(); x += step) {
            const int wx = left + (2 * x + 1) * size / (2 * image.width());
            const int wy = top + (2 * y + 1) * size / (2 * image.height());
            const Rgba colour = texel(image, x, y);
            if (wx < blackFrom + 2 || !same(texel(image, x - step, y), colour) || !same(texel(image, x + step, y), colour) ||
                !same(texel(image, x, y - step), colour) || !same(texel(image, x, y + step), colour))
                continue;
            const Rgb over{colour.red * colour.alpha / 255, colour.green * colour.alpha / 255, colour.blue * colour.alpha / 255};
            EXPECT_TRUE(near(pixel(window, wx, wy), over, 24)) << "the button's image at " << wx << "," << wy << ": "
                                                               << describe(pixel(window, wx, wy)) << " for " << describe(over);
            ++checked;
            visible += colour.alpha > 128 ? 1 : 0;
        }
    }
    EXPECT_GE(checked, 20) << "too few even places in the image to check";
    EXPECT_GE(visible, 10) << "too few places where the image shows";
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

class WindowedPlayTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!m_x.ok())
            GTEST_SKIP() << "no X server: " << m_x.whyNot();
        vrqserver::ReferenceServer::Options options;
        options.host = vrqtest::loopbackAddress();
        // The colour bars: known colours across the whole picture.
        options.game.video.width = 640;
        options.game.video.height = 480;
        options.game.video.pattern = "smpte";
        m_server = vrqserver::ReferenceServer::start(options);
        ASSERT_TRUE(m_server);
    }

    // The input messages the game received so far, with their channels ("ack" ones unwrapped).
    std::vector<std::pair<std::string, json>> inputs()
    {
        std::vector<std::pair<std::string, json>> messages;
        const auto session = m_server->gameServer().latestSession();
        if (!session)
            return messages;
        for (const auto& message : session->messageLog().messages()) {
            const json parsed = json::parse(message.bytes, nullptr, false);
            if (message.label == "km")
                messages.emplace_back(message.label, parsed);
            else if (message.label == "ack")
                messages.emplace_back(message.label, parsed.is_object() ? parsed.value("data", json()) : parsed);
        }
        return messages;
    }

    bool waitForInputs(std::size_t count)
    {
        return vrq::runMainLoopUntil([&] { return inputs().size() >= count; }, 10s);
    }

    bool printed(const vrqtest::ChildProcess& app, const std::string& event)
    {
        const auto lines = app.lines();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return json::parse(line, nullptr, false).value("event", "") == event;
        });
    }

    vrqtest::XServer m_x{1280, 720};
    vrqtest::TempDir m_home;
    std::unique_ptr<vrqserver::ReferenceServer> m_server;
};

TEST_F(WindowedPlayTest, InputReachesTheGameAndTheWindowShowsVideoAndGamepad)
{
    // One finger taps the A button, another taps the picture's middle.
    const auto replay = m_home.path() / "fingers.jsonl";
    std::ofstream(replay) << R"({"ms": 0, "finger": "down", "id": 7, "x": 0.890625, "y": 0.6944})" "\n"
                          << R"({"ms": 60, "finger": "up", "id": 7, "x": 0.890625, "y": 0.6944})" "\n"
                          << R"({"ms": 120, "finger": "down", "id": 8, "x": 0.5, "y": 0.25})" "\n"
                          << R"({"ms": 180, "finger": "up", "id": 8, "x": 0.5, "y": 0.25})" "\n";
    const auto snapshot = m_home.path() / "window.png";
    // The pointer starts on the left bar, where it is not on the remote screen.
    m_x.movePointer(80, 360);
    std::vector<std::string> command{"/usr/bin/env", "DISPLAY=" + m_x.name(), "VRQ_HOME=" + m_home.path().string()};
    if (vrqtest::kDrawingChildSanitizerOptions)
        command.emplace_back(vrqtest::kDrawingChildSanitizerOptions);
    command.insert(command.end(), {VRQ_TOOL_vrq_play, "--server", m_server->origin(), "--layout", "pad", "--duration", "8",
                                   "--events", "json", "--snapshot", snapshot.string(), "--replay", replay.string()});
    vrqtest::ChildProcess app(command);
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return printed(app, "first_frame") || app.outputEnded(); }, 15s));
    ASSERT_TRUE(printed(app, "window")) << "no window was opened";

    // The layout connects the controller (3 messages), then the fingers: A
    // pressed and released, and a touch on the picture.
    ASSERT_TRUE(waitForInputs(7));
    const std::size_t beforeX = inputs().size();
    m_x.click(1); // on the left bar: nothing is sent
    m_x.movePointer(640, 360);
    m_x.click(1);
    m_x.click(4); // the wheel, one step up
    m_x.tap("a");
    m_x.key("Control_L", true);
    m_x.key("Alt_L", true);
    m_x.tap("s"); // the statistics panel, on and off: the game does not see S
    m_x.tap("s");
    m_x.key("Alt_L", false);
    m_x.key("Control_L", false);
    ASSERT_TRUE(waitForInputs(beforeX + 11));
    ASSERT_TRUE(app.waitForExit(20s).has_value());

    // The messages on each channel, in order; touch times vary and are left out.
    std::vector<json> km;
    std::vector<json> ack;
    for (auto [label, message] : inputs()) {
        message.erase("timestamp");
        (label == "km" ? km : ack).push_back(message);
    }
    const auto keySequence = [](const char* text) { return json{{"type", "key_seq"}, {"keys", {text}}}; };
    const auto touch = [](int type) {
        // The middle of the picture's width, a quarter down: (480, 180) of the 960 x 720 picture.
        return json{{"type", "event_touch"}, {"event_type", type}, {"touch_id", 0}, {"finger_id", 0}, {"pressure", 1},
                    {"x", 480.0}, {"y", 180.0}, {"width", 960.0}, {"height", 720.0}};
    };
    const auto keyboard = [](int key, bool down) { return json{{"type", "keyboard"}, {"key", key}, {"down", down}}; };
    const json centre = {{"type", "mousemove_v2"}, {"x", 4096.0}, {"y", 4096.0}};
    const std::vector<json> expectedKm = {
        {{"type", "gamepadconnect"}},
        {{"type", "gamepadkey"}, {"key", 16}, {"down", true}},
        {{"type", "gamepadkey"}, {"key", 16}, {"down", false}},
        keySequence("{\"type\": \"gamepadkey\",\"down\": true,\"key\": 4096}"),
        keySequence("{\"type\": \"gamepadkey\",\"down\": false,\"key\": 4096}"),
        touch(0),
        touch(2),
        centre, // the move to the middle
        centre, // the press goes where the pointer is
        {{"type", "mousescroll"}, {"delta", 1.0}},
        keyboard(65, true),
        keyboard(65, false),
        keyboard(17, true),
        keyboard(18, true),
        keyboard(18, false),
        keyboard(17, false),
    };
    EXPECT_EQ(json(km).dump(1), json(expectedKm).dump(1));
    const std::vector<json> expectedAck = {{{"type", "mouseleft"}, {"down", true}}, {{"type", "mouseleft"}, {"down", false}}};
    EXPECT_EQ(json(ack).dump(1), json(expectedAck).dump(1));

    const auto window = vrq::Image::decode(readFile(snapshot));
    ASSERT_TRUE(window.has_value()) << "the snapshot is not a readable PNG";
    ASSERT_EQ(window->width(), 1280);
    ASSERT_EQ(window->height(), 720);
    expectLetterboxedBars(*window);
    const auto buttonImage = vrq::Image::decode(readFile(VRQVGamepadUtil::resourceFolder() + "/vrqvkey/a.png"));
    ASSERT_TRUE(buttonImage.has_value());
    expectImageAt(*window, *buttonImage, kButtonALeft, kButtonATop, kButtonASize, kPictureLeft + kPictureWidth);
}

} // namespace

#endif
