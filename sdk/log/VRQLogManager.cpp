#include "vrq/log/VRQLogManager.h"

#include "vrq/log/VRQLogDelegate.h"
#include "vrq/log/VRQLogger.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/LogBackend.h"
#include "vrq/utils/VRQDeviceId.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQMetricBatch.h"
#include "vrq/utils/VRQRemoteSession.h"

namespace {

constexpr std::size_t kUploadBatchSize = 3;

nlohmann::json sessionInfoFrom(const VRQRemoteSession& session)
{
    return {{"request_id", session.requestId}, {"server_ip", session.serverIp}, {"user_id", session.userId}};
}

} // namespace

VRQLogManager& VRQLogManager::sharedManager()
{
    // Never destroyed: log lines may still arrive from other threads while the process exits.
    static auto* manager = new VRQLogManager;
    return *manager;
}

VRQLogManager::VRQLogManager()
    : m_sessionInfo(sessionInfoFrom(VRQRemoteSession{}))
    , m_uploads(std::make_unique<VRQMetricBatch>("vrqsdk.metric.upload", "cg_client_log", kUploadBatchSize,
                                                 &VRQHttpHelper::postMetricLogs))
{
}

VRQLogManager::~VRQLogManager()
{
    finitSDK();
}

bool VRQLogManager::beginInitLocked(const std::optional<nlohmann::json>& fieldTrials)
{
    if (m_hasInit)
        return false;
    m_hasInit = true;
    if (fieldTrials)
        m_fieldTrials = fieldTrials;
    return true;
}

void VRQLogManager::initSDK(VRQLogDelegate* delegate, int minDebugLogLevel,
                            const std::optional<nlohmann::json>& fieldTrials)
{
    std::lock_guard lock(m_mutex);
    if (!beginInitLocked(fieldTrials))
        return;
    m_logger = std::make_unique<VRQLogger>();
    m_logger->setLogDelegate(delegate);
    m_logger->start(minDebugLogLevel);
    vrq::logging::setMinDebugLogLevel(minDebugLogLevel);
}

void VRQLogManager::initSDK(const std::string& directory, std::size_t /*maxFileSize*/, int minDebugLogLevel,
                            const std::optional<nlohmann::json>& fieldTrials)
{
    std::lock_guard lock(m_mutex);
    if (!beginInitLocked(fieldTrials))
        return;
    // The size argument is ignored on purpose: files always rotate at kLogFileSize.
    m_fileLogger = std::make_unique<vrq::logging::FileLogger>(directory, kLogFileSize);
    m_fileLogger->setSeverity(minDebugLogLevel);
    m_fileLogger->start();
    vrq::logging::setMinDebugLogLevel(minDebugLogLevel);
}

void VRQLogManager::setLogDelegate(VRQLogDelegate* delegate, int minDebugLogLevel)
{
    std::lock_guard lock(m_mutex);
    if (!m_logger) {
        m_logger = std::make_unique<VRQLogger>();
        m_logger->setLogDelegate(delegate);
        m_logger->start(minDebugLogLevel);
    } else {
        m_logger->setLogDelegate(delegate);
    }
    vrq::logging::setMinDebugLogLevel(minDebugLogLevel);
}

void VRQLogManager::finitSDK()
{
    std::lock_guard lock(m_mutex);
    if (m_fileLogger) {
        m_fileLogger->stop();
        m_fileLogger.reset();
    }
    // The callback logger is dropped too, so that a delegate set after this starts a new one.
    if (m_logger) {
        m_logger->stop();
        m_logger.reset();
    }
    m_hasInit = false;
}

bool VRQLogManager::hasInit() const
{
    std::lock_guard lock(m_mutex);
    return m_hasInit;
}

std::optional<nlohmann::json> VRQLogManager::fieldTrials() const
{
    std::lock_guard lock(m_mutex);
    return m_fieldTrials;
}

std::string VRQLogManager::clientInfo() const
{
    std::lock_guard lock(m_mutex);
    return m_clientInfo;
}

void VRQLogManager::setClientInfo(const std::string& info)
{
    std::lock_guard lock(m_mutex);
    m_clientInfo = info;
}

void VRQLogManager::updateSessionInfo(const VRQRemoteSession& info)
{
    // Applied on the upload queue, so records queued earlier keep the session they were made in.
    m_uploads->async([this, session = sessionInfoFrom(info)] { m_sessionInfo = session; });
}

void VRQLogManager::uploadLog(const std::string& line)
{
    m_uploads->append([this, line, timestamp = vrq::nowMs()] {
        nlohmann::json record = m_sessionInfo;
        record["timestamp"] = timestamp;
        record["content"] = line;
        record["device_id"] = vrqDeviceID();
        return record;
    });
}

void VRQLogManager::postMetricLog()
{
    m_uploads->flush();
}
