#pragma once

// Two engine peers on loopback, signalled directly: an offerer that receives
// like the kit, and an answerer that sends a small test scene like the
// reference server. Observers record everything, under their own locks.

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/engine/RtcAnswerer_p.h"
#include "vrq/platform/services/LogBackend.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vrqtest::rtc {

using namespace vrq::rtc;
using Clock = std::chrono::steady_clock;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

inline constexpr int kWidth = 642;  // neither a multiple of 16: the decoder crops,
inline constexpr int kHeight = 362; // and its rows are wider than the picture
inline const char* const kFixedLabels[] = {"hb", "ack", "sv", "cd", "km"};

// ICE stays on loopback unless the environment already restricts it. With
// VRQ_TEST_LOG=<level> (0 verbose to 3 error), the engine's lines go to stderr.
inline void restrictIceToLoopback()
{
    ::setenv("VRQ_ICE_ADDRESSES", "127.0.0.1", 0);
    static vrq::logging::CallbackLogger* echo = nullptr;
    if (!echo && std::getenv("VRQ_TEST_LOG")) {
        echo = new vrq::logging::CallbackLogger; // lives for the whole process
        echo->setSeverity(vrq::logging::kVerbose);
        echo->start([](int, const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
        setEngineDebugLevel(std::atoi(std::getenv("VRQ_TEST_LOG")));
    }
}

inline bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout = 10s)
{
    return vrq::runMainLoopUntil(predicate, timeout);
}

// The value a completion delivers, from whatever thread.
template <class T>
class Await {
public:
    std::function<void(T)> callback()
    {
        return [state = m_state](T value) {
            std::lock_guard lock(state->mutex);
            state->value = std::move(value);
        };
    }
    std::optional<T> wait(std::chrono::milliseconds timeout = 10s)
    {
        waitUntil([&] { return ready(); }, timeout);
        std::lock_guard lock(m_state->mutex);
        return m_state->value;
    }
    bool ready() const
    {
        std::lock_guard lock(m_state->mutex);
        return m_state->value.has_value();
    }

private:
    struct State {
        std::mutex mutex;
        std::optional<T> value;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

using DescriptionResult = std::pair<std::optional<SessionDescription>, std::optional<vrq::rtc::Error>>;

inline PeerConnection::DescriptionCompletion describe(Await<DescriptionResult>& await)
{
    return [done = await.callback()](std::optional<SessionDescription> description, std::optional<vrq::rtc::Error> error) {
        done({std::move(description), std::move(error)});
    };
}

class ChannelRecorder : public DataChannelObserver {
public:
    void dataChannelDidChangeState(DataChannel& channel) override
    {
        std::lock_guard lock(m_mutex);
        m_states.push_back(channel.readyState());
        ++m_calls;
    }
    void dataChannelDidReceiveMessage(DataChannel&, const DataBuffer& buffer) override
    {
        std::lock_guard lock(m_mutex);
        m_messages.push_back(buffer);
        ++m_calls;
    }
    std::vector<DataBuffer> messages() const
    {
        std::lock_guard lock(m_mutex);
        return m_messages;
    }
    std::vector<DataChannelState> states() const
    {
        std::lock_guard lock(m_mutex);
        return m_states;
    }
    int calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<DataBuffer> m_messages;
    std::vector<DataChannelState> m_states;
    int m_calls = 0;
};

class FrameCounter : public VideoSink {
public:
    void onFrame(std::shared_ptr<const VideoFrame> frame) override
    {
        std::lock_guard lock(m_mutex);
        m_last = std::move(frame);
        ++m_count;
    }
    int count() const
    {
        std::lock_guard lock(m_mutex);
        return m_count;
    }
    std::shared_ptr<const VideoFrame> last() const
    {
        std::lock_guard lock(m_mutex);
        return m_last;
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const VideoFrame> m_last;
    int m_count = 0;
};

class PeerRecorder : public PeerConnectionObserver {
public:
    void didChangeConnectionState(PeerConnectionState state) override
    {
        std::lock_guard lock(m_mutex);
        m_states.push_back({state, Clock::now()});
        ++m_calls;
    }
    void didChangeIceConnectionState(IceConnectionState state) override
    {
        std::lock_guard lock(m_mutex);
        m_iceStates.push_back(state);
        ++m_calls;
    }
    void didAddStream(int videoTracks, int audioTracks) override
    {
        std::lock_guard lock(m_mutex);
        m_videoTracks += videoTracks;
        m_audioTracks += audioTracks;
        ++m_calls;
    }
    void didOpenDataChannel(std::shared_ptr<DataChannel> channel) override
    {
        auto recorder = std::make_shared<ChannelRecorder>();
        channel->setObserver(recorder.get());
        std::lock_guard lock(m_mutex);
        m_remoteChannels[channel->label()] = {channel, recorder};
        ++m_calls;
    }
    void didReceiveFirstFrame() override
    {
        std::lock_guard lock(m_mutex);
        if (!m_firstFrameAt)
            m_firstFrameAt = Clock::now();
        ++m_firstFrames;
        ++m_calls;
    }
    void didChangeVideoSize(int width, int height) override
    {
        std::lock_guard lock(m_mutex);
        m_sizes.emplace_back(width, height);
        ++m_calls;
    }
    void didReceiveSei(const std::uint8_t* data, std::size_t length) override
    {
        std::lock_guard lock(m_mutex);
        m_sei.emplace_back(reinterpret_cast<const char*>(data), length);
        ++m_calls;
    }

    bool reached(PeerConnectionState state) const
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [reachedState, at] : m_states)
            if (reachedState == state)
                return true;
        return false;
    }
    std::optional<Clock::time_point> reachedAt(std::initializer_list<PeerConnectionState> states) const
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [reachedState, at] : m_states)
            for (PeerConnectionState wanted : states)
                if (reachedState == wanted)
                    return at;
        return std::nullopt;
    }
    std::vector<IceConnectionState> iceStates() const
    {
        std::lock_guard lock(m_mutex);
        return m_iceStates;
    }
    std::optional<Clock::time_point> firstFrameAt() const
    {
        std::lock_guard lock(m_mutex);
        return m_firstFrameAt;
    }
    int firstFrames() const
    {
        std::lock_guard lock(m_mutex);
        return m_firstFrames;
    }
    std::vector<std::pair<int, int>> sizes() const
    {
        std::lock_guard lock(m_mutex);
        return m_sizes;
    }
    std::vector<std::string> sei() const
    {
        std::lock_guard lock(m_mutex);
        return m_sei;
    }
    std::pair<int, int> tracks() const
    {
        std::lock_guard lock(m_mutex);
        return {m_videoTracks, m_audioTracks};
    }
    struct RemoteChannel {
        std::shared_ptr<DataChannel> channel;
        std::shared_ptr<ChannelRecorder> recorder;
    };
    std::optional<RemoteChannel> remoteChannel(const std::string& label) const
    {
        std::lock_guard lock(m_mutex);
        auto it = m_remoteChannels.find(label);
        return it == m_remoteChannels.end() ? std::nullopt : std::optional<RemoteChannel>(it->second);
    }
    std::size_t remoteChannelCount() const
    {
        std::lock_guard lock(m_mutex);
        return m_remoteChannels.size();
    }
    int calls() const
    {
        std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<PeerConnectionState, Clock::time_point>> m_states;
    std::vector<IceConnectionState> m_iceStates;
    std::map<std::string, RemoteChannel> m_remoteChannels;
    std::optional<Clock::time_point> m_firstFrameAt;
    int m_firstFrames = 0;
    std::vector<std::pair<int, int>> m_sizes;
    std::vector<std::string> m_sei;
    int m_videoTracks = 0;
    int m_audioTracks = 0;
    int m_calls = 0;
};

// The SEI text the answerer writes into every access unit: zero runs that
// need emulation prevention, and more than 255 bytes so that the size takes
// several bytes.
inline std::string seiText()
{
    static const char kStart[] = "rtt_detect{\"base\":1}\0\0\1\0\0\0\0\3 ";
    std::string text(kStart, sizeof kStart - 1);
    while (text.size() < 300)
        text += "0123456789";
    return text;
}

inline SendMedia testScene()
{
    SendMedia media;
    media.videoLaunch = "videotestsrc is-live=true pattern=ball ! video/x-raw,width=" + std::to_string(kWidth) + ",height="
                        + std::to_string(kHeight)
                        + ",framerate=30/1 ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max=30 bitrate=400 "
                          "! video/x-h264,profile=constrained-baseline ! h264parse";
    media.audioLaunch = "audiotestsrc is-live=true wave=sine volume=0.1 ! audio/x-raw,rate=48000,channels=2 ! opusenc";
    media.seiText = [] { return seiText(); };
    return media;
}

// An offerer and an answerer, connected: the offerer opens the five fixed
// channels, then its receive-only video and audio transceivers, and offers.
struct ConnectedPair {
    PeerRecorder offererEvents;
    PeerRecorder answererEvents;
    std::shared_ptr<FrameCounter> frames = std::make_shared<FrameCounter>();
    std::shared_ptr<PeerConnection> offerer;
    std::shared_ptr<AnsweringPeerConnection> answerer;
    std::map<std::string, std::shared_ptr<DataChannel>> channels;
    std::map<std::string, std::shared_ptr<ChannelRecorder>> channelEvents;
    std::string offerSdp;
    std::string answerSdp;
    Clock::time_point createdAt;
    Clock::time_point offerSetAt;
    Clock::time_point answerAppliedAt;
    int disconnectTimeoutMs = Configuration{}.disconnectTimeoutMs;
    int iceConnectTimeoutMs = Configuration{}.iceConnectTimeoutMs;
    // Applied to the answer before the offerer sees it.
    std::function<std::string(const std::string&)> editAnswer;
    bool waitForConnection = true;

    // Returns an explanation when a step failed.
    std::optional<std::string> connect()
    {
        restrictIceToLoopback();
        createdAt = Clock::now();
        Configuration receiving;
        receiving.jitterBufferLatencyMs = 20;
        receiving.disconnectTimeoutMs = disconnectTimeoutMs;
        receiving.iceConnectTimeoutMs = iceConnectTimeoutMs;
        offerer = PeerConnection::create(receiving, &offererEvents);
        offerer->setVideoSink(frames);
        for (const char* label : kFixedLabels) {
            auto recorder = std::make_shared<ChannelRecorder>();
            auto channel = offerer->createDataChannel(label, true, recorder.get());
            if (!channel)
                return std::string("no channel ") + label;
            channels[label] = channel;
            channelEvents[label] = recorder;
        }
        offerer->addRecvOnlyTransceiver(MediaType::Video);
        offerer->addRecvOnlyTransceiver(MediaType::Audio);

        Await<DescriptionResult> offered;
        offerer->offer(describe(offered));
        auto offer = offered.wait();
        if (!offer || !offer->first)
            return "no offer: " + (offer && offer->second ? offer->second->toString() : std::string("timeout"));
        offerSdp = offer->first->sdp;
        Await<std::optional<vrq::rtc::Error>> localSet;
        offerer->setLocalDescription(*offer->first, localSet.callback());
        if (auto set = localSet.wait(); !set || *set)
            return "offer not set: " + (set && *set ? (*set)->toString() : std::string("timeout"));
        offerSetAt = Clock::now();

        answerer = AnsweringPeerConnection::create(Configuration{}, testScene(), &answererEvents);
        Await<std::optional<vrq::rtc::Error>> remoteSet;
        answerer->setRemoteDescription(*offer->first, remoteSet.callback());
        if (auto set = remoteSet.wait(); !set || *set)
            return "offer not applied: " + (set && *set ? (*set)->toString() : std::string("timeout"));
        Await<DescriptionResult> answered;
        answerer->answer(describe(answered));
        auto answer = answered.wait();
        if (!answer || !answer->first)
            return "no answer: " + (answer && answer->second ? answer->second->toString() : std::string("timeout"));
        Await<std::optional<vrq::rtc::Error>> answerSet;
        answerer->setLocalDescription(*answer->first, answerSet.callback());
        if (auto set = answerSet.wait(); !set || *set)
            return "answer not set: " + (set && *set ? (*set)->toString() : std::string("timeout"));
        Await<DescriptionResult> gathered;
        answerer->localDescriptionWithCandidates(describe(gathered));
        auto complete = gathered.wait();
        if (!complete || !complete->first)
            return "no gathered answer";
        answerSdp = editAnswer ? editAnswer(complete->first->sdp) : complete->first->sdp;

        Await<std::optional<vrq::rtc::Error>> answerApplied;
        offerer->setRemoteDescription({SdpType::Answer, answerSdp}, answerApplied.callback());
        if (auto set = answerApplied.wait(); !set || *set)
            return "answer not applied: " + (set && *set ? (*set)->toString() : std::string("timeout"));
        answerAppliedAt = Clock::now();
        if (waitForConnection && !waitUntil([&] { return offererEvents.reached(PeerConnectionState::Connected); }))
            return "never connected";
        return std::nullopt;
    }

    bool allChannelsOpen() const
    {
        for (const auto& [label, channel] : channels)
            if (channel->readyState() != DataChannelState::Open)
                return false;
        return true;
    }

    void close()
    {
        if (offerer)
            offerer->close();
        if (answerer)
            answerer->close();
    }
};

} // namespace vrqtest::rtc
