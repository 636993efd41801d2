#pragma once

#include "vrq/platform/engine/RtcStatistics.h"
#include "vrq/platform/views/Geometry.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct VRQRemoteSession;

class VRQMetricBatch;
class VRQSDKReport;

namespace vrq {
class Timer;
}

// The process-wide collector of session metrics. Session events come from
// the main thread, statistics from the transport's threads. Records are
// batched on the serial queue "vrqsdk.metric.report" and uploaded ten at a time.
class VRQSDKMonitor {
public:
    static constexpr std::size_t kReportBatchSize = 10;

    static VRQSDKMonitor& sharedInstance();
    // The persistent device id, kept in user defaults under "VRQSDK_DEVICE_ID".
    static std::string vrqDeviceID();

    // Start of a session (main thread).
    void resetWithSession(const VRQRemoteSession& session);

    void onConnectSuccess();
    void onFirstFrameDraw();
    void onStartReconnect(std::int64_t code);
    void onSetLocalSdpError(std::int64_t code);
    void onSetRemoteSdpError(std::int64_t code);
    void onDisconnectWithError(std::int64_t code);
    void onStopGame(std::int64_t code);
    void onVideoSizeChanged(vrq::Size size);
    void onNetworkChanged(std::int64_t status);

    void updateRTCInfo(const std::vector<vrq::LegacyStatsReport>& reports);
    void updateRtcStats(const vrq::StatsReport& report);
    void updateRemoteInfo(const nlohmann::json& info);
    void updateRTT(std::int32_t rtt);
    void updateToken(const std::string& token);
    // Evaluates a round-trip detection reply (without its first three characters).
    void updateTotalTrans(const std::string& text);

    nlohmann::json currentReport() const;
    VRQSDKReport& currentSDKReport() const { return *m_reportObj; }
    nlohmann::json createHeartbeatMessage() const;
    nlohmann::json createTotalTransDetection() const;
    std::int32_t loadCostTimeMS() const;

    nlohmann::json publicParams() const;
    void appendReport(nlohmann::json record);
    void sendReport();
    void stopAndFlushReport();
    void appendPerfReportAndSend();

    // Blocks until every record handed over so far has been batched or posted.
    void waitForPendingReports();

    static std::string networkTypeText(std::int64_t status);

private:
    VRQSDKMonitor();
    void appendEvent(nlohmann::json members);
    std::int32_t msSinceStart() const;
    static nlohmann::json deviceBaseInfo();

    std::unique_ptr<VRQSDKReport> m_reportObj;
    std::unique_ptr<VRQMetricBatch> m_reports; // the queue "vrqsdk.metric.report"

    mutable std::mutex m_mutex; // guards the members below
    std::shared_ptr<vrq::Timer> m_reportTimer;
    nlohmann::json m_reportPublicParams;
    std::string m_deviceId;
    std::int64_t m_startGameTimeMS = 0;
    std::int32_t m_loadCostTimeMS = 0;
};
