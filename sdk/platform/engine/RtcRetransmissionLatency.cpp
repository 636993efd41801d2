#include "vrq/platform/engine/RtcRetransmissionLatency_p.h"

#include <algorithm>
#include <vector>

namespace vrq::rtc {

RetransmissionLatency::RetransmissionLatency(int configuredMs)
    : m_configuredMs(std::max(0, configuredMs))
    , m_latencyMs(m_configuredMs)
{
}

void RetransmissionLatency::requested(std::uint16_t sequence, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    m_lastRequest = at;
    Request& slot = m_requests[sequence % kRequests];
    // A repeated request keeps the time of the first: the round trip counts from there.
    if (slot.used && slot.sequence == sequence)
        return;
    slot = {sequence, at, true};
}

void RetransmissionLatency::retransmitted(std::uint16_t sequence, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    Request& slot = m_requests[sequence % kRequests];
    if (!slot.used || slot.sequence != sequence)
        return;
    slot.used = false;
    const auto roundTrip = std::chrono::duration_cast<std::chrono::milliseconds>(at - slot.at).count();
    m_roundTrips[m_nextRoundTrip] = static_cast<int>(std::clamp<long long>(roundTrip, 1, 10 * kCeilingMs));
    m_nextRoundTrip = (m_nextRoundTrip + 1) % kRoundTrips;
}

std::optional<int> RetransmissionLatency::medianRoundTrip() const
{
    std::vector<int> measured;
    for (int roundTrip : m_roundTrips)
        if (roundTrip > 0)
            measured.push_back(roundTrip);
    if (measured.empty())
        return std::nullopt;
    const auto middle = measured.begin() + static_cast<std::ptrdiff_t>(measured.size() / 2);
    std::nth_element(measured.begin(), middle, measured.end());
    return *middle;
}

std::optional<int> RetransmissionLatency::gaveUp(Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    if (m_lastRise && at - *m_lastRise < kRiseInterval)
        return std::nullopt;
    const auto roundTrip = medianRoundTrip();
    if (!roundTrip)
        return std::nullopt;
    const int target = std::min(std::max(*roundTrip + kMarginMs, m_latencyMs + kStepMs), kCeilingMs);
    if (target <= m_latencyMs)
        return std::nullopt;
    m_latencyMs = target;
    m_lastRise = at;
    return m_latencyMs;
}

std::optional<int> RetransmissionLatency::elapsed(Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    if (m_latencyMs == m_configuredMs)
        return std::nullopt;
    const Clock::time_point lastActivity = std::max(m_lastRequest.value_or(Clock::time_point{}), m_lastRise.value_or(Clock::time_point{}));
    if (at - lastActivity < kQuietPeriod)
        return std::nullopt;
    m_latencyMs = m_configuredMs;
    m_lastRise.reset();
    m_roundTrips.fill(0);
    return m_latencyMs;
}

int RetransmissionLatency::latencyMs() const
{
    std::lock_guard lock(m_mutex);
    return m_latencyMs;
}

std::optional<int> RetransmissionLatency::roundTripMs() const
{
    std::lock_guard lock(m_mutex);
    return medianRoundTrip();
}

} // namespace vrq::rtc
