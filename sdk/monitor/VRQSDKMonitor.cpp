#include "vrq/monitor/VRQSDKMonitor.h"

#include "vrq/log/VRQLog.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/platform/services/UserDefaults.h"
#include "vrq/utils/VRQDeviceId.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQMetricBatch.h"
#include "vrq/utils/VRQReachability.h"
#include "vrq/utils/VRQRemoteSession.h"
#include "vrq/utils/VRQSDKVersion.h"

#include <glib.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>

namespace {

// Times from the wire may be anything: sums and differences wrap in 64 bits
// as the server's arithmetic does, rather than overflow.
std::int64_t wrappingSum(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t wrappingDifference(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

constexpr int kPlatform = 2;
constexpr std::int64_t kInvaildTs = -99999;

std::string formatFixed2(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

} // namespace

VRQSDKMonitor& VRQSDKMonitor::sharedInstance()
{
    // Never destroyed: timers and queued records may still refer to it at exit.
    static VRQSDKMonitor* monitor = new VRQSDKMonitor;
    return *monitor;
}

VRQSDKMonitor::VRQSDKMonitor()
    : m_reportObj(std::make_unique<VRQSDKReport>())
    , m_reports(std::make_unique<VRQMetricBatch>("vrqsdk.metric.report", "cg_client_stat", kReportBatchSize,
                                                 &VRQHttpHelper::postMetricReports))
    , m_reportPublicParams(nlohmann::json::object())
    , m_deviceId(vrqDeviceID())
{
    VRQReachability::sharedInstance().startNotifier();
}

std::string VRQSDKMonitor::vrqDeviceID()
{
    return ::vrqDeviceID();
}

std::string VRQSDKMonitor::networkTypeText(std::int64_t status)
{
    switch (status) {
    case 0: return "null";
    case 1: return "WIFI";
    case 2: return "2G";
    case 3: return "3G";
    case 4: return "4G";
    case 5: return "5G";
    default: return "UNKNOWN";
    }
}

nlohmann::json VRQSDKMonitor::deviceBaseInfo()
{
    struct utsname names {};
    ::uname(&names);
    const char* program = g_get_prgname();
    return {
        {"app_Name", program ? program : program_invocation_short_name},
        {"app_Version", ""},
        {"system", std::string(names.sysname) + " " + names.release},
        {"model", names.machine},
    };
}

void VRQSDKMonitor::resetWithSession(const VRQRemoteSession& session)
{
    vrqLogReset(session);
    const std::string& serverIp = session.serverIp;
    const std::string& region = session.region;
    const std::string& requestId = session.requestId;
    const std::string& userId = session.userId;
    const std::string& gameId = session.gameId;
    const nlohmann::json& appId = session.appId;
    m_reportObj->setServerIP(serverIp);
    m_reportObj->setRegion(region);
    m_reportObj->setRequestID(requestId);
    m_reportObj->setUserID(userId);
    m_reportObj->setGameID(gameId);
    m_reportObj->setAppID(appId);
    m_reportObj->setDeviceID(vrqDeviceID());

    const std::int64_t status = VRQReachability::sharedInstance().currentReachabilityStatus();
    onNetworkChanged(status);
    VRQ_LOG_UPLOAD(3, "new session request_id:%s game_id:%s server_ip:%s", requestId.c_str(), gameId.c_str(),
                   serverIp.c_str());

    nlohmann::json record;
    {
        std::lock_guard lock(m_mutex);
        m_reportPublicParams = {
            {"user_id", userId}, {"request_id", requestId}, {"server_ip", serverIp},
            {"game_id", gameId}, {"app_id", appId}, {"version", VRQSDKVersion},
            {"platform", kPlatform}, {"device_id", m_deviceId}, {"region", region},
            {"network_type", m_reportObj->networkType()},
        };
        m_startGameTimeMS = vrq::nowMs();
        m_loadCostTimeMS = 0;
    }
    record = publicParams();
    record.update(deviceBaseInfo());
    record["network_type"] = status; // this record carries the status number, not its text
    appendReport(std::move(record));

    std::lock_guard lock(m_mutex);
    if (!m_reportTimer)
        m_reportTimer = vrq::Timer::onMain(std::chrono::milliseconds(1000), true, [this] { appendPerfReportAndSend(); });
}

nlohmann::json VRQSDKMonitor::publicParams() const
{
    std::lock_guard lock(m_mutex);
    nlohmann::json params = m_reportPublicParams;
    params["timestamp"] = vrq::nowMs();
    return params;
}

std::int32_t VRQSDKMonitor::msSinceStart() const
{
    std::lock_guard lock(m_mutex);
    return static_cast<std::int32_t>(vrq::nowMs() - m_startGameTimeMS);
}

std::int32_t VRQSDKMonitor::loadCostTimeMS() const
{
    std::lock_guard lock(m_mutex);
    return m_loadCostTimeMS;
}

void VRQSDKMonitor::appendEvent(nlohmann::json members)
{
    nlohmann::json record = publicParams();
    record.update(members);
    appendReport(std::move(record));
}

void VRQSDKMonitor::onConnectSuccess()
{
    VRQ_LOG(1, "onConnectSuccess");
    const std::int32_t cost = msSinceStart();
    {
        std::lock_guard lock(m_mutex);
        m_loadCostTimeMS = cost;
    }
    appendEvent({{"load_cost_time", cost}});
}

void VRQSDKMonitor::onFirstFrameDraw()
{
    VRQ_LOG(1, "onFirstFrameDraw");
    appendEvent({{"first_frame", msSinceStart()}});
}

void VRQSDKMonitor::onStartReconnect(std::int64_t code)
{
    VRQ_LOG(1, "onStartReconnect %lld", static_cast<long long>(code));
    // Codes other than these three have no value of their own; they count as 0.
    const int reason = code == 10002 ? 1 : code == 10020 ? 2 : 0;
    appendEvent({{"reconnection", reason},
                 {"network_type", VRQReachability::sharedInstance().currentReachabilityStatus()}});
}

void VRQSDKMonitor::onSetLocalSdpError(std::int64_t code)
{
    VRQ_LOG(3, "onSetLocalSdpError %lld", static_cast<long long>(code));
    appendEvent({{"local_sdp_failed", 1}});
}

void VRQSDKMonitor::onSetRemoteSdpError(std::int64_t code)
{
    VRQ_LOG(3, "onSetRemoteSdpError %lld", static_cast<long long>(code));
    appendEvent({{"remote_sdp_failed", 1}});
}

void VRQSDKMonitor::onDisconnectWithError(std::int64_t code)
{
    VRQ_LOG(3, "onDisconnectWithError %lld", static_cast<long long>(code));
    appendEvent({{"disconnection", 1}, {"played_time", msSinceStart()}});
    stopAndFlushReport();
}

void VRQSDKMonitor::onStopGame(std::int64_t code)
{
    VRQ_LOG(1, "onStopGame %lld", static_cast<long long>(code));
    const int stop = code == 10003 ? 0 : code == 10004 ? 1 : code == 10008 ? 2 : code == 10009 ? 4 : 3;
    appendEvent({{"played_time", msSinceStart()}, {"game_stop", stop}});
    stopAndFlushReport();
}

void VRQSDKMonitor::onVideoSizeChanged(vrq::Size size)
{
    VRQ_LOG(1, "onVideoSizeChanged %.0fx%.0f", size.width, size.height);
}

void VRQSDKMonitor::onNetworkChanged(std::int64_t status)
{
    m_reportObj->setNetworkType(networkTypeText(status));
}

void VRQSDKMonitor::updateRTCInfo(const std::vector<vrq::LegacyStatsReport>& reports)
{
    m_reportObj->updateWithRtcInfo(reports);
}

void VRQSDKMonitor::updateRtcStats(const vrq::StatsReport& report)
{
    m_reportObj->updateWithRtcStats(report);
}

void VRQSDKMonitor::updateRemoteInfo(const nlohmann::json& info)
{
    m_reportObj->updateWithRemoteInfos(info);
}

void VRQSDKMonitor::updateRTT(std::int32_t rtt)
{
    m_reportObj->setRttMS(static_cast<std::uint64_t>(static_cast<std::int64_t>(rtt)));
}

void VRQSDKMonitor::updateToken(const std::string& token)
{
    m_reportObj->setToken(token);
}

nlohmann::json VRQSDKMonitor::currentReport() const
{
    return m_reportObj->currentReport();
}

nlohmann::json VRQSDKMonitor::createTotalTransDetection() const
{
    const std::int64_t now = vrq::nowMs();
    return nlohmann::json::array({{{"base", now - 300}, {"id", "cli"}, {"s", 300}}});
}

// Six members are numbers written as strings, and "input_delay" repeats "rtt":
// the server reads the message in exactly this shape.
nlohmann::json VRQSDKMonitor::createHeartbeatMessage() const
{
    const VRQSDKReport& report = *m_reportObj;
    return {
        {"timestamp", vrq::nowMs()},
        {"fps", formatFixed2(report.fps())},
        {"delay", std::to_string(report.videoDelay())},
        {"rtt", report.rttMS()},
        {"load_cost_time", loadCostTimeMS()},
        {"bit_rate", std::to_string(report.videoBitrateKb())},
        {"packet_lost", std::to_string(report.videoPacketLost())},
        {"nack", std::to_string(report.videoNack())},
        {"packet_received", std::to_string(report.videoPacketRecv())},
        {"gpu", report.gpuUsage()},
        {"input_delay", report.rttMS()},
        {"rtt_detect", createTotalTransDetection()},
    };
}

void VRQSDKMonitor::updateTotalTrans(const std::string& text)
{
    const auto reply = vrq_dictionaryWithJsonObject(text);
    if (!reply)
        return;
    const nlohmann::json detect = vrq_arrayForKey(*reply, "rtt_detect", nlohmann::json::array());
    if (detect.empty())
        return;
    std::int64_t base = 0;
    std::int64_t cliSend = 0, cliRecv = 0, srvRecv = 0, srvSend = 0;
    for (const auto& element : detect) {
        const std::int64_t s = vrq_longForKey(element, "s", kInvaildTs);
        if (s == kInvaildTs)
            return;
        std::int64_t received = 0;
        if (base == 0) {
            base = vrq_longForKey(element, "base", kInvaildTs);
            if (base == kInvaildTs) {
                VRQ_LOG(1, "rttInfo has no base ts");
                return;
            }
            received = vrq::nowMs();
        } else {
            // A missing "r" is not caught here: only a sum equal to the sentinel stops.
            received = wrappingSum(vrq_longForKey(element, "r", kInvaildTs), base);
            if (received == kInvaildTs)
                return;
        }
        const std::int64_t sent = wrappingSum(s, base);
        const std::string id = vrq_stringForKey(element, "id", std::string()).value_or("");
        if (id == "cli") {
            cliSend = sent;
            cliRecv = received;
        } else if (id == "srv") {
            srvRecv = received;
            srvSend = sent;
        }
    }
    if (cliSend == 0 || srvRecv == 0 || srvSend == 0)
        return;
    // The 32-bit result goes into the unsigned field as it is: a negative time
    // wraps, and the server reads it in that form.
    const auto total = static_cast<std::int32_t>(
        wrappingDifference(wrappingDifference(cliRecv, cliSend), wrappingDifference(srvSend, srvRecv)));
    m_reportObj->setTotalTransMS(static_cast<std::uint64_t>(static_cast<std::int64_t>(total)));
}

void VRQSDKMonitor::appendPerfReportAndSend()
{
    VRQSDKReport& report = *m_reportObj;
    nlohmann::json record = publicParams();
    record.update(nlohmann::json{
        {"bit_rate", report.videoBitrateKb()},
        {"packet_lost", report.videoPacketLost()},
        {"packet_received", report.videoPacketRecv()},
        {"fps", vrq_floatNumber(report.fps())},
        {"target_delay", report.videoDelay()},
        {"googDecodeMs", report.videoDecodeMS()},
        {"nack", report.videoNack()},
        {"cpu", vrq_floatNumber(report.cpuUsage())},
        {"gpu", report.gpuUsage()},
        {"jitter_buffer", report.videoJitterBuffer()},
        {"rtt", report.rttMS()},
        {"raw_rtt", report.rawRttMS()},
        {"freeze_count", vrq_floatNumber(report.videoFreezeCount())},
    });
    // Each measured total transmission time is reported once.
    if (const std::uint64_t totalTrans = report.takeTotalTransMS(); totalTrans != 0)
        record["total_trans"] = totalTrans;
    appendReport(std::move(record));
}

void VRQSDKMonitor::appendReport(nlohmann::json record)
{
    m_reports->append([record = std::move(record)]() mutable { return std::move(record); });
}

void VRQSDKMonitor::sendReport()
{
    m_reports->flush();
}

void VRQSDKMonitor::stopAndFlushReport()
{
    std::shared_ptr<vrq::Timer> timer;
    {
        std::lock_guard lock(m_mutex);
        timer = std::move(m_reportTimer);
    }
    if (timer)
        timer->cancel();
    sendReport();
    vrqFlushLog();
}

void VRQSDKMonitor::waitForPendingReports()
{
    m_reports->waitUntilIdle();
}
