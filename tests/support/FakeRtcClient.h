#pragma once

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/rtc/VRQSdkRtcDelegate.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vrqtest {

// An RTC client without an engine, for the player's logic: it records what
// the player asks of it, and the test plays the engine's part through the
// player's delegate interface. Handlers, their registration and close() are
// the real client's.
class FakeRtcClient : public VRQWebrtClient {
public:
    static std::shared_ptr<FakeRtcClient> create(VRQSdkRtcDelegate* delegate)
    {
        std::shared_ptr<FakeRtcClient> client(new FakeRtcClient(delegate));
        auto view = std::make_shared<VRQGameVideoView>();
        view->setFrame({{0, 0}, {1280, 720}});
        client->setPlayView(view);
        return client;
    }

    nlohmann::json getClientSession() const override { return {{"type", "offer"}, {"sdp", "v=0 offer"}}; }
    void setRemoteSdp(const std::string& sdp) override { record("setRemoteSdp:" + sdp); }
    void reConnect() override { record("reConnect"); }
    void close() override
    {
        VRQWebrtClient::close();
        record("close");
    }
    bool createDataChannelWithLabel(const std::string& label) override
    {
        record("createDataChannel:" + label);
        return true;
    }
    std::int32_t getDataChannelState(const std::string&) const override { return 1; }
    bool sendRawData(const std::string& data, const std::string& label, bool isBinary) override
    {
        record("send:" + label + (isBinary ? ":binary:" : ":") + data);
        return true;
    }

    // The engine's side.
    void offerSet() { delegate()->onSetLocalDescriptionSuccess(); }
    void firstFrame() { delegate()->onFirstFrameDraw(); }
    void disconnected() { delegate()->onDisconnection(); }
    // A message on a label, as the engine hands it to the label's handler;
    // false when no handler holds the label.
    bool deliver(const std::string& label, const std::string& text)
    {
        auto handler = handlerFor(label);
        if (handler)
            handler->onReceiveMsg({text, false}, label);
        return handler != nullptr;
    }

    std::vector<std::string> calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }
    std::size_t count(const std::string& prefix) const
    {
        std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(std::count_if(m_calls.begin(), m_calls.end(), [&](const std::string& call) {
            return call.rfind(prefix, 0) == 0;
        }));
    }

private:
    using VRQWebrtClient::VRQWebrtClient;

    void record(std::string call)
    {
        std::lock_guard lock(m_mutex);
        m_calls.push_back(std::move(call));
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

} // namespace vrqtest
