// Where each figure comes from.
//
// webrtcbin's "get-stats" (GStreamer 1.22), read by StatsReader:
//   inbound-rtp: packetsReceived, bytesReceived, jitter (seconds), nackCount,
//     pliCount, firCount. Lost packets come from the nested
//     gst-rtpsource-stats "packets-lost" (the top-level figure stays 0 under
//     real loss). Its "kind" may be wrong with BUNDLE, so the kind is taken
//     from the stream's caps when webrtcbin exposed its pad.
//   candidate-pair and every other statistic: passed on as webrtcbin gives
//     them. webrtcbin measures no round-trip time for a pair; when one is known
//     it is added as currentRoundTripTime (seconds): the remote-inbound-rtp
//     round-trip time of a sending peer, else the jitter buffer's
//     retransmission round trip ("rtx-rtt") of a receiving one.
//
// The receive branch, measured in the pipeline (MediaMeter):
//   framesPerSecond / googFrameRateOutput: decoded frames leaving the decoder
//     during the last second;
//   googDecodeMs / totalDecodeTime: time from the decoder's input to its output
//     for the same presentation time;
//   freezeCount / totalFreezesDuration: gaps between decoded frames longer than
//     max(3 x average interval, average + 150 ms), W3C's rule;
//   googJitterBufferMs / jitterBufferDelay: time each RTP packet spends in the
//     stream's rtpjitterbuffer (smoothed; totals for the standard figure);
//   frameWidth / frameHeight: the decoder's output caps;
//   codecImplementationName / decoderImplementation: the decoder element
//     chosen at engine start ("avdec_h264", or a hardware one).
// From the stream's rtpjitterbuffer itself: its "latency" setting
// (googTargetDelayMs = latency + decode time) and, when webrtcbin's NACK count
// is missing, its "rtx-count" (retransmission requests sent).
// googCurrentDelayMs = jitter-buffer delay + decode time.

#include "vrq/platform/engine/RtcStatsCollector_p.h"

#include <cmath>
#include <string>

namespace vrq::rtc {
namespace {

using json = nlohmann::json;

double numberAt(const json& values, const char* key, double fallback = 0.0)
{
    const auto it = values.find(key);
    return it != values.end() && it->is_number() ? it->get<double>() : fallback;
}

std::string integerText(double value)
{
    return std::to_string(std::llround(value));
}

const StatsEntry* inboundFor(const std::vector<StatsEntry>& webrtc, unsigned ssrc)
{
    for (const StatsEntry& entry : webrtc) {
        if (entry.type == "inbound-rtp" && numberAt(entry.values, "ssrc", -1.0) == static_cast<double>(ssrc))
            return &entry;
    }
    return nullptr;
}

double packetsLost(const json& inbound)
{
    const auto nested = inbound.find("gstRtpsourceStats");
    double lost = nested != inbound.end() ? numberAt(*nested, "packetsLost", -1.0) : -1.0;
    if (lost < 0)
        lost = numberAt(inbound, "packetsLost");
    return std::max(0.0, lost);
}

double nacksSent(const json& inbound, const ReceiveBranch::Figures& stream)
{
    const double fromWebrtc = numberAt(inbound, "nackCount", -1.0);
    if (fromWebrtc >= 0)
        return fromWebrtc;
    return stream.retransmissionRequests.value_or(0.0);
}

const char* mediaName(MediaType media)
{
    return media == MediaType::Video ? "video" : "audio";
}

std::optional<double> roundTripSeconds(const std::vector<StatsEntry>& webrtc, const std::vector<ReceiveBranch::Figures>& streams)
{
    for (const StatsEntry& entry : webrtc) {
        if (entry.type == "remote-inbound-rtp") {
            const double rtt = numberAt(entry.values, "roundTripTime", -1.0);
            if (rtt > 0)
                return rtt;
        }
    }
    for (const auto& stream : streams) {
        if (stream.retransmissionRoundTripSeconds)
            return stream.retransmissionRoundTripSeconds;
    }
    return std::nullopt;
}

} // namespace

std::vector<LegacyStatsReport> StatsCollector::legacy(const std::vector<StatsEntry>& webrtc, const std::vector<ReceiveBranch::Figures>& streams)
{
    static const json kNone = json::object();
    std::vector<LegacyStatsReport> reports;
    for (const auto& stream : streams) {
        if (!stream.media)
            continue;
        const StatsEntry* inbound = inboundFor(webrtc, stream.ssrc);
        const json& values = inbound ? inbound->values : kNone;
        const auto& meter = stream.meter;

        LegacyStatsReport report;
        report.reportId = "ssrc_" + std::to_string(stream.ssrc) + "_recv";
        report.type = "ssrc";
        auto& out = report.values;
        out["ssrc"] = std::to_string(stream.ssrc);
        out["mediaType"] = mediaName(*stream.media);
        out["packetsReceived"] = integerText(numberAt(values, "packetsReceived"));
        out["bytesReceived"] = integerText(numberAt(values, "bytesReceived"));
        out["packetsLost"] = integerText(packetsLost(values));
        out["googNacksSent"] = integerText(nacksSent(values, stream));
        out["packetsRetransmittedReceived"] = std::to_string(stream.retransmittedPacketsReceived);
        out["googJitterReceived"] = integerText(numberAt(values, "jitter") * 1000.0);
        out["googJitterBufferMs"] = integerText(meter.jitterBufferDelayMs);
        out["googDecodeMs"] = integerText(meter.averageDecodeMs);
        out["googTargetDelayMs"] = integerText(stream.latencyMs + meter.averageDecodeMs);
        out["googCurrentDelayMs"] = integerText(meter.jitterBufferDelayMs + meter.averageDecodeMs);
        if (*stream.media == MediaType::Video) {
            out["googFrameRateOutput"] = integerText(meter.framesPerSecond);
            out["googFrameRateDecoded"] = integerText(meter.framesPerSecond);
            out["googFrameWidthReceived"] = std::to_string(stream.width);
            out["googFrameHeightReceived"] = std::to_string(stream.height);
            out["framesDecoded"] = std::to_string(meter.framesDecoded);
            out["googPlisSent"] = integerText(numberAt(values, "pliCount"));
            out["googFirsSent"] = integerText(numberAt(values, "firCount"));
            out["codecImplementationName"] = stream.decoder;
        }
        reports.push_back(std::move(report));
    }
    return reports;
}

StatsReport StatsCollector::standard(const std::vector<StatsEntry>& webrtc, const std::vector<ReceiveBranch::Figures>& streams)
{
    StatsReport report;
    for (const StatsEntry& entry : webrtc)
        report[entry.id] = entry;

    const std::optional<double> roundTrip = roundTripSeconds(webrtc, streams);
    for (auto& [id, entry] : report) {
        if (entry.type == "candidate-pair" && roundTrip)
            entry.values["currentRoundTripTime"] = *roundTrip;
    }

    for (const auto& stream : streams) {
        if (!stream.media)
            continue;
        const char* kind = mediaName(*stream.media);
        const auto& meter = stream.meter;
        json measured = {
            {"framesDecoded", meter.framesDecoded},
            {"totalDecodeTime", meter.totalDecodeSeconds},
            {"jitterBufferDelay", meter.totalJitterBufferDelaySeconds},
            {"jitterBufferEmittedCount", meter.jitterBufferEmitted},
            {"retransmittedPacketsReceived", stream.retransmittedPacketsReceived},
        };
        if (*stream.media == MediaType::Video) {
            measured["framesPerSecond"] = meter.framesPerSecond;
            measured["frameWidth"] = stream.width;
            measured["frameHeight"] = stream.height;
            measured["freezeCount"] = meter.freezeCount;
            measured["totalFreezesDuration"] = meter.totalFreezesSeconds;
            measured["decoderImplementation"] = stream.decoder;
        }

        if (const StatsEntry* inbound = inboundFor(webrtc, stream.ssrc)) {
            StatsEntry& entry = report[inbound->id];
            entry.kind = kind;
            entry.values["kind"] = kind;
            entry.values["packetsLost"] = packetsLost(inbound->values);
            entry.values.update(measured);
        }

        StatsEntry track;
        track.id = std::string("track_") + kind + "_" + std::to_string(stream.ssrc);
        track.type = "track";
        track.kind = kind;
        track.values = measured;
        track.values["kind"] = kind;
        track.values["type"] = "track";
        track.values["remoteSource"] = true;
        report[track.id] = std::move(track);
    }
    return report;
}

} // namespace vrq::rtc
