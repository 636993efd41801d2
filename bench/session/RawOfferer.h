#pragma once

#include "MessageArrivals.h"

#include "vrq/platform/engine/RtcPeerConnection.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// The benchmarks' baseline: the engine's own offerer, set up as the kit sets
// it up (receive-only video and audio, the five fixed channels), without the
// kit around it. Numbered messages arriving on "cd" are timed.
class RawOfferer : vrq::rtc::PeerConnectionObserver, vrq::rtc::DataChannelObserver {
public:
    static constexpr const char* kLabels[] = {"hb", "ack", "sv", "cd", "km"};

    RawOfferer()
    {
        m_pc = vrq::rtc::PeerConnection::create({}, this);
        m_pc->setVideoSink(m_counter);
        for (const char* label : kLabels) {
            auto channel = m_pc->createDataChannel(label, true, this);
            m_channels.push_back(channel);
        }
        m_pc->addRecvOnlyTransceiver(vrq::rtc::MediaType::Video);
        m_pc->addRecvOnlyTransceiver(vrq::rtc::MediaType::Audio);
        m_pc->offer([this](auto description, auto) {
            if (!description)
                return;
            m_pc->setLocalDescription(*description, [this, sdp = description->sdp](auto error) {
                std::lock_guard lock(m_mutex);
                if (!error)
                    m_offer = sdp;
            });
        });
    }
    ~RawOfferer() override
    {
        for (const auto& channel : m_channels)
            channel->setObserver(nullptr);
        m_pc->close();
    }
    RawOfferer(const RawOfferer&) = delete;
    RawOfferer& operator=(const RawOfferer&) = delete;

    std::optional<std::string> offer()
    {
        std::lock_guard lock(m_mutex);
        return m_offer;
    }
    void applyAnswer(const std::string& sdp) { m_pc->setRemoteDescription({vrq::rtc::SdpType::Answer, sdp}, [](auto) {}); }
    bool connected() const { return m_pc->connectionState() == vrq::rtc::PeerConnectionState::Connected; }
    bool channelsOpen() const
    {
        return std::all_of(m_channels.begin(), m_channels.end(),
                           [](const auto& c) { return c->readyState() == vrq::rtc::DataChannelState::Open; });
    }
    bool send(const std::string& label, const std::string& text)
    {
        for (const auto& channel : m_channels)
            if (channel->label() == label)
                return channel->sendData({text, false});
        return false;
    }
    long frames() const { return m_counter->frames.load(); }
    vrq::rtc::StartTimeline startTimeline() const { return m_pc->startTimeline(); }

    std::atomic<bool> firstFrame{false};
    MessageArrivals arrivals;

private:
    struct CountingSink : vrq::rtc::VideoSink {
        void onFrame(std::shared_ptr<const vrq::rtc::VideoFrame>) override { ++frames; }
        std::atomic<long> frames{0};
    };

    void didChangeConnectionState(vrq::rtc::PeerConnectionState) override {}
    void didChangeIceConnectionState(vrq::rtc::IceConnectionState) override {}
    void didAddStream(int, int) override {}
    void didReceiveFirstFrame() override { firstFrame = true; }
    void dataChannelDidChangeState(vrq::rtc::DataChannel&) override {}
    void dataChannelDidReceiveMessage(vrq::rtc::DataChannel& channel, const vrq::rtc::DataBuffer& buffer) override
    {
        if (channel.label() == "cd")
            arrivals.record(buffer.data);
    }

    std::shared_ptr<CountingSink> m_counter = std::make_shared<CountingSink>();
    std::shared_ptr<vrq::rtc::PeerConnection> m_pc;
    std::vector<std::shared_ptr<vrq::rtc::DataChannel>> m_channels;
    std::mutex m_mutex;
    std::optional<std::string> m_offer; // guarded by m_mutex
};
