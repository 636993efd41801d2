#pragma once

// The kit's side of a play session on the engine alone: receive-only video
// and audio, the five fixed channels (and any extra ones, e.g. custom
// "custom_trans_N"), and an offer sent as it was created, without
// candidates, as the kit's client session carries it.

#include "integration/rtc/RtcTestPeers.h"

#include "vrq/platform/services/Crypto.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vrqtest {

class KitOfferer {
public:
    using PeerRecorder = rtc::PeerRecorder;

    explicit KitOfferer(std::vector<std::string> extraLabels = {})
        : m_labels(std::begin(rtc::kFixedLabels), std::end(rtc::kFixedLabels))
    {
        m_labels.insert(m_labels.end(), extraLabels.begin(), extraLabels.end());
    }

    // Returns an explanation when a step failed.
    std::optional<std::string> createOffer()
    {
        rtc::restrictIceToLoopback();
        vrq::rtc::Configuration receiving;
        receiving.jitterBufferLatencyMs = 20;
        m_connection = vrq::rtc::PeerConnection::create(receiving, &m_events);
        if (!m_connection)
            return "no peer connection";
        m_connection->setVideoSink(m_frames);
        for (const std::string& label : m_labels) {
            auto recorder = std::make_shared<rtc::ChannelRecorder>();
            auto channel = m_connection->createDataChannel(label, true, recorder.get());
            if (!channel)
                return "no channel " + label;
            m_channels[label] = {channel, recorder};
        }
        m_connection->addRecvOnlyTransceiver(vrq::rtc::MediaType::Video);
        m_connection->addRecvOnlyTransceiver(vrq::rtc::MediaType::Audio);

        rtc::Await<rtc::DescriptionResult> offered;
        m_connection->offer(rtc::describe(offered));
        auto offer = offered.wait();
        if (!offer || !offer->first)
            return "no offer";
        rtc::Await<std::optional<vrq::rtc::Error>> localSet;
        m_connection->setLocalDescription(*offer->first, localSet.callback());
        if (auto set = localSet.wait(); !set || *set)
            return "offer not set";
        m_offerSdp = offer->first->sdp;
        return std::nullopt;
    }

    const std::string& offerSdp() const { return m_offerSdp; }

    // The client session text as the kit hands it to its host.
    std::string clientSession() const
    {
        const nlohmann::json session = {{"type", "offer"},     {"sdp", m_offerSdp}, {"isPlanB", false},
                                        {"payloadType", 102},  {"profile", ""},     {"sdkType", "IOS"},
                                        {"sdkVersion", "1.1.7.20"}};
        return vrq::base64Encode(session.dump());
    }

    std::optional<std::string> applyAnswer(const std::string& sdp)
    {
        rtc::Await<std::optional<vrq::rtc::Error>> applied;
        m_connection->setRemoteDescription({vrq::rtc::SdpType::Answer, sdp}, applied.callback());
        if (auto set = applied.wait(); !set || *set)
            return "answer not applied: " + (set && *set ? (*set)->toString() : std::string("timeout"));
        if (!rtc::waitUntil([&] { return m_events.reached(vrq::rtc::PeerConnectionState::Connected); }))
            return "never connected";
        return std::nullopt;
    }

    bool allChannelsOpen() const
    {
        return std::all_of(m_channels.begin(), m_channels.end(), [](const auto& entry) {
            return entry.second.channel->readyState() == vrq::rtc::DataChannelState::Open;
        });
    }

    bool send(const std::string& label, const std::string& bytes, bool binary = false)
    {
        auto found = m_channels.find(label);
        return found != m_channels.end() && found->second.channel->sendData({bytes, binary});
    }

    std::vector<vrq::rtc::DataBuffer> received(const std::string& label) const
    {
        auto found = m_channels.find(label);
        return found == m_channels.end() ? std::vector<vrq::rtc::DataBuffer>() : found->second.recorder->messages();
    }

    // SEI texts that carry round-trip detection; the encoder's own SEI is left out.
    std::vector<std::string> rttDetectSei() const
    {
        std::vector<std::string> texts;
        for (const auto& text : m_events.sei())
            if (text.find("rtt_detect") != std::string::npos)
                texts.push_back(text);
        return texts;
    }

    const PeerRecorder& events() const { return m_events; }
    // The legacy "ssrc" report of the received video; nothing when there is none.
    std::optional<std::map<std::string, std::string>> videoStatistics() const
    {
        rtc::Await<std::vector<vrq::LegacyStatsReport>> legacy;
        m_connection->legacyStatistics(legacy.callback());
        const auto reports = legacy.wait();
        if (reports)
            for (const auto& report : *reports)
                if (report.values.count("mediaType") && report.values.at("mediaType") == "video")
                    return report.values;
        return std::nullopt;
    }
    const rtc::FrameCounter& frames() const { return *m_frames; }

    void close()
    {
        if (m_connection)
            m_connection->close();
    }

    ~KitOfferer() { close(); }

private:
    struct Channel {
        std::shared_ptr<vrq::rtc::DataChannel> channel;
        std::shared_ptr<rtc::ChannelRecorder> recorder;
    };

    std::vector<std::string> m_labels;
    PeerRecorder m_events;
    std::shared_ptr<rtc::FrameCounter> m_frames = std::make_shared<rtc::FrameCounter>();
    std::shared_ptr<vrq::rtc::PeerConnection> m_connection;
    std::map<std::string, Channel> m_channels;
    std::string m_offerSdp;
};

} // namespace vrqtest
