#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace vrq::rtc {

// Figures of one received stream measured in the pipeline: decoded output
// rate, decode time, freezes and time spent in the jitter buffer. Fed from
// the streaming threads, read by the statistics; thread-safe.
class MediaMeter {
public:
    using Clock = std::chrono::steady_clock;

    struct Snapshot {
        double framesPerSecond = 0.0; // decoded output during the last second
        std::uint64_t framesDecoded = 0;
        double averageDecodeMs = 0.0;
        double totalDecodeSeconds = 0.0;
        std::uint64_t freezeCount = 0;
        double totalFreezesSeconds = 0.0;
        double jitterBufferDelayMs = 0.0; // smoothed
        std::uint64_t jitterBufferEmitted = 0;
        double totalJitterBufferDelaySeconds = 0.0;
    };

    // An encoded unit entered the decoder, and a decoded one left it; the key
    // (the presentation time) pairs them.
    void decoderInput(std::uint64_t key, Clock::time_point at);
    void decoderOutput(std::uint64_t key, Clock::time_point at);
    // A decoded frame was delivered (counts for rate and freezes).
    void frameDecoded(Clock::time_point at);
    // A packet entered, and a packet left, the jitter buffer (by sequence number).
    void jitterBufferInput(std::uint16_t sequence, Clock::time_point at);
    void jitterBufferOutput(std::uint16_t sequence, Clock::time_point at);

    Snapshot snapshot(Clock::time_point now) const;

private:
    static constexpr std::size_t kPendingDecodes = 64;
    static constexpr std::size_t kPendingPackets = 1024;
    static constexpr std::size_t kIntervalWindow = 30;

    struct PendingDecode {
        std::uint64_t key = 0;
        Clock::time_point at;
        bool used = false;
    };
    struct PendingPacket {
        std::uint16_t sequence = 0;
        Clock::time_point at;
        bool used = false;
    };

    mutable std::mutex m_mutex;
    std::array<PendingDecode, kPendingDecodes> m_pendingDecodes{};
    std::size_t m_nextDecode = 0;
    std::array<PendingPacket, kPendingPackets> m_pendingPackets{};
    std::deque<Clock::time_point> m_recentFrames;     // the last second of frames
    std::deque<Clock::duration> m_recentIntervals;    // the last kIntervalWindow gaps that were not freezes
    Clock::duration m_recentIntervalsSum{};
    std::optional<Clock::time_point> m_lastFrame;
    Snapshot m_totals;
    std::uint64_t m_decodeSamples = 0;
    double m_smoothedJitterDelayMs = -1.0;
};

} // namespace vrq::rtc
