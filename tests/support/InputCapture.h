#pragma once

#include "support/FakeRtcClient.h"
#include "support/TempHome.h"
#include "vrq/core/VRQGameController.h"
#include "vrq/core/VRQGamePlayer.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace vrqtest {

// A player whose RTC client is a stand-in, so that the input that views
// send through its game controller can be read back as wire messages.
class InputCapture {
public:
    InputCapture()
    {
        m_player = VRQGamePlayer::create(nlohmann::json::object(), std::weak_ptr<VRQGamePlayerDelegate>(),
                                         [this](const nlohmann::json&, VRQSdkRtcDelegate* delegate) {
                                             m_client = FakeRtcClient::create(delegate);
                                             return m_client;
                                         });
    }
    ~InputCapture()
    {
        if (m_player)
            m_player->stopGame();
    }
    InputCapture(const InputCapture&) = delete;
    InputCapture& operator=(const InputCapture&) = delete;

    std::shared_ptr<VRQGameController> controller() const { return m_player->gameController(); }

    // Every message the player sent so far, as "send:<label>:<text>".
    std::vector<std::string> sentCalls() const
    {
        std::vector<std::string> sent;
        for (auto& call : m_client->calls()) {
            if (call.rfind("send:", 0) == 0)
                sent.push_back(std::move(call));
        }
        return sent;
    }

    // The input messages sent so far on "km" and "ack", in order, parsed;
    // those on "ack" without their envelope.
    std::vector<nlohmann::json> sent() const
    {
        std::vector<nlohmann::json> messages;
        for (const std::string& call : sentCalls()) {
            for (const std::string label : {"km", "ack"}) {
                const std::string prefix = "send:" + label + ":";
                if (call.rfind(prefix, 0) != 0)
                    continue;
                auto message = nlohmann::json::parse(call.substr(prefix.size()), nullptr, false);
                messages.push_back(label == "ack" ? message.value("data", nlohmann::json()) : message);
            }
        }
        return messages;
    }
    // Each as "type" and its values in a short text: "mousemove_v2 8 10",
    // "mouseleft down", "mousedeltamove_v2 -3 4"; other types as their JSON.
    std::vector<std::string> summary() const
    {
        std::vector<std::string> lines;
        for (const auto& message : sent()) {
            const std::string type = message.value("type", "");
            if (type == "mousemove_v2" || type == "mousedeltamove_v2")
                lines.push_back(type + " " + number(message["x"]) + " " + number(message["y"]));
            else if (type == "mouseleft" || type == "mouseright")
                lines.push_back(type + (message.value("down", false) ? " down" : " up"));
            else
                lines.push_back(message.dump());
        }
        return lines;
    }

private:
    static std::string number(const nlohmann::json& value)
    {
        if (!value.is_number())
            return "?";
        const double number = value.get<double>();
        return number == std::floor(number) ? std::to_string(static_cast<long long>(number)) : value.dump();
    }

    TempHome m_home;
    std::shared_ptr<FakeRtcClient> m_client;
    std::shared_ptr<VRQGamePlayer> m_player;
};

} // namespace vrqtest
