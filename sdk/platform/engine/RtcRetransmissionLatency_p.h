#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

namespace vrq::rtc {

// The jitter-buffer latency of a stream whose lost packets are asked for
// again: how long the buffer waits for a missing packet before it gives the
// packet up (packets that are not missing leave at once). A retransmission
// only helps when it arrives within that wait, so the latency must cover its
// round trip. It starts at the configured latency, kept low for games. When
// the buffer gives a packet up while retransmissions do come for the stream
// (late ones included), the latency rises to the median recent round trip
// (from the first request to the retransmission's arrival) plus a margin for
// noticing the gap, and by at least a step, up to a ceiling; at most once per
// kRiseInterval, since one loss gives up several packets. A stream that is
// never retransmitted keeps its latency. Once no retransmission was asked for
// during kQuietPeriod, the configured latency returns. Thread-safe.
class RetransmissionLatency {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr int kStepMs = 20;
    static constexpr int kMarginMs = 40;
    static constexpr int kCeilingMs = 150;
    static constexpr std::chrono::milliseconds kRiseInterval{250};
    static constexpr std::chrono::milliseconds kQuietPeriod{10000};

    explicit RetransmissionLatency(int configuredMs);

    // The jitter buffer asked for the packet (again).
    void requested(std::uint16_t sequence, Clock::time_point at);
    // A retransmitted packet arrived, in time or not.
    void retransmitted(std::uint16_t sequence, Clock::time_point at);
    // The buffer gave up a packet. The new latency when it changes.
    std::optional<int> gaveUp(Clock::time_point at);
    // Time passed. The configured latency again, after a quiet period.
    std::optional<int> elapsed(Clock::time_point at);

    int latencyMs() const;
    // The median of the recent round trips; nothing before the first.
    std::optional<int> roundTripMs() const;

private:
    struct Request {
        std::uint16_t sequence = 0;
        Clock::time_point at;
        bool used = false;
    };
    static constexpr std::size_t kRequests = 256;
    static constexpr std::size_t kRoundTrips = 16;

    std::optional<int> medianRoundTrip() const; // m_mutex held

    const int m_configuredMs;
    mutable std::mutex m_mutex; // guards the members below
    int m_latencyMs;
    std::array<Request, kRequests> m_requests{};       // first requests, by sequence modulo kRequests
    std::array<int, kRoundTrips> m_roundTrips{};       // ms; 0: none
    std::size_t m_nextRoundTrip = 0;
    std::optional<Clock::time_point> m_lastRequest;
    std::optional<Clock::time_point> m_lastRise;
};

} // namespace vrq::rtc
