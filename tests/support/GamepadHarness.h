#pragma once

#include "support/InputCapture.h"
#include "vrq/VRQVKey/button/VRQVKeyGamepad.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/views/Window.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vrqtest {

// The instruction texts of one button message, in order.
using Keys = std::vector<std::string>;

// An on-screen gamepad filling a window, wired to a captured game
// controller, so that what the buttons send can be read back as the wire
// messages of the "km" channel. Fingers go through the window.
class GamepadHarness {
    InputCapture m_capture; // made first: the pad's controller lives in it

public:
    explicit GamepadHarness(vrq::Size size = {1920, 1080})
        : window(std::make_shared<vrq::Window>(vrq::Rect{{0, 0}, size}))
        , pad(VRQVKeyGamepad::initWithFrame({{0, 0}, size}, m_capture.controller()))
    {
        window->addSubview(pad);
    }
    ~GamepadHarness()
    {
        if (pad)
            pad->removeFromSuperview();
    }
    GamepadHarness(const GamepadHarness&) = delete;
    GamepadHarness& operator=(const GamepadHarness&) = delete;

    void show(std::string_view layout) { pad->showKeyGamepad(layout); }

    template<typename Button>
    std::shared_ptr<Button> button(std::size_t index) const
    {
        const auto& buttons = pad->buttonList();
        return index < buttons.size() ? std::dynamic_pointer_cast<Button>(buttons[index]) : nullptr;
    }

    void down(vrq::Point at, std::uint64_t finger = 1) { window->touchDown(finger, at, m_time += 0.01); }
    void move(vrq::Point at, std::uint64_t finger = 1) { window->touchMove(finger, at, m_time += 0.01); }
    void up(vrq::Point at, std::uint64_t finger = 1) { window->touchUp(finger, at, m_time += 0.01); }

    // Every message the player sent, as "send:<label>:<text>".
    std::vector<std::string> sentCalls() const { return m_capture.sentCalls(); }
    std::size_t count() const { return sentCalls().size(); }

    // The keys of each message sent since the last call. A message that is
    // not a key sequence on "km" shows as one line saying so, which no
    // expected list holds.
    std::vector<Keys> take()
    {
        const auto sent = sentCalls();
        std::vector<Keys> messages;
        for (std::size_t at = m_taken; at < sent.size(); ++at)
            messages.push_back(keysOf(sent[at]));
        m_taken = sent.size();
        return messages;
    }

    // Lets the main loop run until at least `total` messages were sent (at
    // most 5 s); for messages sent from other threads.
    bool waitForCount(std::size_t total) const
    {
        return vrq::runMainLoopUntil([&] { return count() >= total; }, std::chrono::seconds(5));
    }

    std::shared_ptr<vrq::Window> window;
    std::shared_ptr<VRQVKeyGamepad> pad;

private:
    static Keys keysOf(const std::string& call)
    {
        const std::string prefix = "send:km:";
        if (call.rfind(prefix, 0) != 0)
            return {"not on km: " + call};
        const auto message = nlohmann::json::parse(call.substr(prefix.size()), nullptr, false);
        if (!message.is_object() || message.value("type", "") != "key_seq" || !message.contains("keys") ||
            !message["keys"].is_array())
            return {"not a key sequence: " + call};
        Keys keys;
        for (const auto& key : message["keys"])
            keys.push_back(key.is_string() ? key.get<std::string>() : "not a string: " + key.dump());
        return keys;
    }

    std::size_t m_taken = 0;
    double m_time = 1;
};

} // namespace vrqtest
