#pragma once

#include "vrq/platform/engine/RtcStartTimeline.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace vrq::rtc {

// Records the steps of a start from any thread: the first time each step is
// reached counts, later ones are ignored.
class StartMarks {
public:
    enum Step : std::size_t {
        AnswerGiven,
        AnswerApplied,
        IceConnected,
        DtlsConnected,
        FirstRtpPacket,
        FirstKeyFrame,
        FirstFrameDecoded,
        FirstFrameDelivered,
        kStepCount,
    };

    void mark(Step step)
    {
        const std::int64_t now = StartTimeline::TimePoint::clock::now().time_since_epoch().count();
        std::int64_t unset = 0;
        m_steps[step].compare_exchange_strong(unset, now, std::memory_order_relaxed);
    }
    bool reached(Step step) const { return m_steps[step].load(std::memory_order_relaxed) != 0; }

    StartTimeline timeline() const
    {
        StartTimeline result;
        result.answerGiven = read(AnswerGiven);
        result.answerApplied = read(AnswerApplied);
        result.iceConnected = read(IceConnected);
        result.dtlsConnected = read(DtlsConnected);
        result.firstRtpPacket = read(FirstRtpPacket);
        result.firstKeyFrame = read(FirstKeyFrame);
        result.firstFrameDecoded = read(FirstFrameDecoded);
        result.firstFrameDelivered = read(FirstFrameDelivered);
        return result;
    }

private:
    std::optional<StartTimeline::TimePoint> read(Step step) const
    {
        const std::int64_t ticks = m_steps[step].load(std::memory_order_relaxed);
        if (ticks == 0)
            return std::nullopt;
        return StartTimeline::TimePoint(StartTimeline::TimePoint::duration(ticks));
    }

    std::array<std::atomic<std::int64_t>, kStepCount> m_steps{};
};

} // namespace vrq::rtc
