#pragma once

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/rtc/VRQWebRTCDataHandler.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <atomic>
#include <memory>
#include <string>

// An RTC client without an engine for the fuzz targets: handlers and their
// registration are the real client's, sending goes nowhere, and a message is
// handed to its label's handler on the calling thread, as the real client
// does on its background queue.
class FuzzRtcClient : public VRQWebrtClient {
public:
    static std::shared_ptr<FuzzRtcClient> create(VRQSdkRtcDelegate* delegate)
    {
        std::shared_ptr<FuzzRtcClient> client(new FuzzRtcClient(delegate));
        auto view = std::make_shared<VRQGameVideoView>();
        view->setFrame({{0, 0}, {1280, 720}});
        client->setPlayView(view);
        return client;
    }

    nlohmann::json getClientSession() const override { return {{"type", "offer"}, {"sdp", "v=0"}}; }
    void setRemoteSdp(const std::string&) override { ++m_remoteSdps; }
    void reConnect() override {}
    // Nothing to close, and the handlers stay: every input meets the same router.
    void close() override {}
    bool createDataChannelWithLabel(const std::string&) override { return true; }
    std::int32_t getDataChannelState(const std::string&) const override { return 1; }
    bool sendRawData(const std::string& data, const std::string&, bool) override
    {
        m_bytesSent += data.size();
        return true;
    }

    // The message as the engine hands it over; false when no handler holds the label.
    bool deliver(const std::string& label, std::string data, bool isBinary)
    {
        auto handler = handlerFor(label);
        if (handler)
            handler->onReceiveMsg({std::move(data), isBinary}, label);
        return handler != nullptr;
    }

    int remoteSdps() const { return m_remoteSdps.load(); }

private:
    using VRQWebrtClient::VRQWebrtClient;

    std::atomic<int> m_remoteSdps{0};
    std::atomic<std::size_t> m_bytesSent{0};
};
