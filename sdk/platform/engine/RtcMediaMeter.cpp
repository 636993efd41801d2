#include "vrq/platform/engine/RtcMediaMeter_p.h"

#include <algorithm>

namespace vrq::rtc {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;
using Seconds = std::chrono::duration<double>;

constexpr auto kRateWindow = std::chrono::seconds(1);
constexpr auto kFreezeMargin = std::chrono::milliseconds(150);
// Freezes are judged once a few intervals give a meaningful average.
constexpr std::size_t kMinIntervalsForFreeze = 3;
// Weight of a new sample in the smoothed jitter-buffer delay.
constexpr double kSmoothing = 1.0 / 16.0;

} // namespace

void MediaMeter::decoderInput(std::uint64_t key, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    m_pendingDecodes[m_nextDecode] = {key, at, true};
    m_nextDecode = (m_nextDecode + 1) % kPendingDecodes;
}

void MediaMeter::decoderOutput(std::uint64_t key, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    for (PendingDecode& pending : m_pendingDecodes) {
        if (!pending.used || pending.key != key)
            continue;
        pending.used = false;
        const Seconds spent = at - pending.at;
        m_totals.totalDecodeSeconds += std::max(0.0, spent.count());
        ++m_decodeSamples;
        return;
    }
}

void MediaMeter::frameDecoded(Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    ++m_totals.framesDecoded;
    m_recentFrames.push_back(at);
    while (!m_recentFrames.empty() && at - m_recentFrames.front() >= kRateWindow)
        m_recentFrames.pop_front();

    if (m_lastFrame) {
        const Clock::duration gap = at - *m_lastFrame;
        bool freeze = false;
        if (m_recentIntervals.size() >= kMinIntervalsForFreeze) {
            // A freeze, as W3C's statistics define it: a gap longer than both
            // three average frame intervals and the average plus 150 ms.
            const Clock::duration average = m_recentIntervalsSum / static_cast<long>(m_recentIntervals.size());
            freeze = gap > std::max<Clock::duration>(3 * average, average + kFreezeMargin);
        }
        if (freeze) {
            ++m_totals.freezeCount;
            m_totals.totalFreezesSeconds += Seconds(gap).count();
        } else {
            m_recentIntervals.push_back(gap);
            m_recentIntervalsSum += gap;
            if (m_recentIntervals.size() > kIntervalWindow) {
                m_recentIntervalsSum -= m_recentIntervals.front();
                m_recentIntervals.pop_front();
            }
        }
    }
    m_lastFrame = at;
}

void MediaMeter::jitterBufferInput(std::uint16_t sequence, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    m_pendingPackets[sequence % kPendingPackets] = {sequence, at, true};
}

void MediaMeter::jitterBufferOutput(std::uint16_t sequence, Clock::time_point at)
{
    std::lock_guard lock(m_mutex);
    PendingPacket& pending = m_pendingPackets[sequence % kPendingPackets];
    if (!pending.used || pending.sequence != sequence)
        return;
    pending.used = false;
    const double delayMs = std::max(0.0, Milliseconds(at - pending.at).count());
    m_smoothedJitterDelayMs = m_smoothedJitterDelayMs < 0 ? delayMs : m_smoothedJitterDelayMs + (delayMs - m_smoothedJitterDelayMs) * kSmoothing;
    ++m_totals.jitterBufferEmitted;
    m_totals.totalJitterBufferDelaySeconds += delayMs / 1000.0;
}

MediaMeter::Snapshot MediaMeter::snapshot(Clock::time_point now) const
{
    std::lock_guard lock(m_mutex);
    Snapshot result = m_totals;
    result.framesPerSecond = static_cast<double>(std::count_if(m_recentFrames.begin(), m_recentFrames.end(), [&](Clock::time_point at) {
        return now - at < kRateWindow && at <= now;
    }));
    result.averageDecodeMs = m_decodeSamples ? m_totals.totalDecodeSeconds * 1000.0 / static_cast<double>(m_decodeSamples) : 0.0;
    result.jitterBufferDelayMs = std::max(0.0, m_smoothedJitterDelayMs);
    return result;
}

} // namespace vrq::rtc
