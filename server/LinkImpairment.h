#pragma once

#include "vrq/platform/engine/RtcAnswerer_p.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>

namespace vrqserver {

// How the network between the game and its client treats the video packets
// (retransmissions included): a share lost at random, and a one-way delay
// with a uniform jitter of up to ± jitter around it. The same seed gives the
// same losses and delays for the same packets, so runs can be compared.
struct LinkConditions {
    double loss = 0.0; // 0 to 1
    std::chrono::milliseconds delay{0};
    std::chrono::milliseconds jitter{0};
    std::uint32_t seed = 1;

    bool clean() const { return loss <= 0.0 && delay.count() <= 0 && jitter.count() <= 0; }
    // Nothing when a value is out of range (loss outside 0 to 1, a negative
    // time, or a time over kMaxDelay).
    static std::optional<LinkConditions> checked(double loss, long long delayMs, long long jitterMs, std::uint32_t seed);
    static constexpr std::chrono::milliseconds kMaxDelay{10000};
};

// One session's link: decides, packet by packet, what happens to its video
// on the way out (see vrq::rtc::SendMedia::videoWire), and counts it.
// Thread-safe: the engine asks from its streaming threads.
class LinkImpairment {
public:
    struct Counts {
        std::uint64_t packets = 0;         // first sendings seen
        std::uint64_t retransmissions = 0; // retransmissions seen
        std::uint64_t lost = 0;            // of both
        std::uint64_t frames = 0;          // video frames whose last packet was sent (lost or not)
    };

    // Replaces the conditions and restarts the random sequence from their seed.
    void setConditions(const LinkConditions& conditions);
    LinkConditions conditions() const;
    // How long to hold this packet back; nothing: it is lost.
    std::optional<std::chrono::microseconds> decide(const vrq::rtc::WirePacket& packet);
    Counts counts() const;

private:
    mutable std::mutex m_mutex; // guards the members below
    LinkConditions m_conditions;
    std::mt19937 m_random{1};
    Counts m_counts;
};

} // namespace vrqserver
