#include "LinkImpairment.h"

#include <algorithm>

namespace vrqserver {

std::optional<LinkConditions> LinkConditions::checked(double loss, long long delayMs, long long jitterMs, std::uint32_t seed)
{
    const auto inRange = [](long long ms) { return ms >= 0 && ms <= kMaxDelay.count(); };
    if (!(loss >= 0.0 && loss <= 1.0) || !inRange(delayMs) || !inRange(jitterMs))
        return std::nullopt;
    return LinkConditions{loss, std::chrono::milliseconds(delayMs), std::chrono::milliseconds(jitterMs), seed};
}

void LinkImpairment::setConditions(const LinkConditions& conditions)
{
    std::lock_guard lock(m_mutex);
    m_conditions = conditions;
    m_random.seed(conditions.seed);
}

LinkConditions LinkImpairment::conditions() const
{
    std::lock_guard lock(m_mutex);
    return m_conditions;
}

std::optional<std::chrono::microseconds> LinkImpairment::decide(const vrq::rtc::WirePacket& packet)
{
    std::lock_guard lock(m_mutex);
    ++(packet.retransmission ? m_counts.retransmissions : m_counts.packets);
    if (packet.endsFrame)
        ++m_counts.frames;
    if (m_conditions.clean())
        return std::chrono::microseconds(0);
    // Both draws happen for every packet, so a packet's fate depends only on
    // its place in the sequence.
    const double draw = std::uniform_real_distribution<double>(0.0, 1.0)(m_random);
    const double spread = std::uniform_real_distribution<double>(-1.0, 1.0)(m_random);
    if (draw < m_conditions.loss) {
        ++m_counts.lost;
        return std::nullopt;
    }
    const double delayUs = 1000.0 * (static_cast<double>(m_conditions.delay.count()) +
                                     spread * static_cast<double>(m_conditions.jitter.count()));
    return std::chrono::microseconds(static_cast<std::int64_t>(std::max(0.0, delayUs)));
}

LinkImpairment::Counts LinkImpairment::counts() const
{
    std::lock_guard lock(m_mutex);
    return m_counts;
}

} // namespace vrqserver
