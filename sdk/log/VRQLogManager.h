#pragma once

#include <nlohmann/json.hpp>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class VRQLogDelegate;
class VRQLogger;
class VRQMetricBatch;
struct VRQRemoteSession;

namespace vrq::logging {
class FileLogger;
}

// The process-wide log manager: sets up the file and callback loggers and
// batches selected lines for upload as client-log records, three at a time.
// Every operation may be called from any thread.
class VRQLogManager {
public:
    static constexpr std::size_t kLogFileSize = 10485760;

    static VRQLogManager& sharedManager();

    // The first initSDK of any form sets the kit up; later ones do nothing until finitSDK.
    void initSDK(VRQLogDelegate* delegate, int minDebugLogLevel,
                 const std::optional<nlohmann::json>& fieldTrials = std::nullopt);
    // maxFileSize is accepted for the call's shape only: files are always kLogFileSize bytes.
    void initSDK(const std::string& directory, std::size_t maxFileSize, int minDebugLogLevel,
                 const std::optional<nlohmann::json>& fieldTrials = std::nullopt);
    void setLogDelegate(VRQLogDelegate* delegate, int minDebugLogLevel);
    void finitSDK();
    bool hasInit() const;
    std::optional<nlohmann::json> fieldTrials() const;

    // Who and where the uploaded lines come from, from now on.
    void updateSessionInfo(const VRQRemoteSession& session);
    void uploadLog(const std::string& line);
    void postMetricLog();

    // Settable by the host; the kit itself does not read them.
    std::string clientInfo() const;
    void setClientInfo(const std::string& info);
    int audioJitterBufferMaxPackets() const { return m_audioJitterBufferMaxPackets; }
    void setAudioJitterBufferMaxPackets(int packets) { m_audioJitterBufferMaxPackets = packets; }
    bool audioJitterBufferFastAccelerate() const { return m_audioJitterBufferFastAccelerate; }
    void setAudioJitterBufferFastAccelerate(bool on) { m_audioJitterBufferFastAccelerate = on; }

    ~VRQLogManager();

private:
    VRQLogManager();
    bool beginInitLocked(const std::optional<nlohmann::json>& fieldTrials);

    mutable std::mutex m_mutex; // guards the loggers, hasInit, field trials and client info
    std::unique_ptr<vrq::logging::FileLogger> m_fileLogger;
    std::unique_ptr<VRQLogger> m_logger;
    bool m_hasInit = false;
    std::optional<nlohmann::json> m_fieldTrials;
    std::string m_clientInfo;
    std::atomic<int> m_audioJitterBufferMaxPackets{20};
    std::atomic<bool> m_audioJitterBufferFastAccelerate{true};

    nlohmann::json m_sessionInfo; // touched only on the upload queue
    std::unique_ptr<VRQMetricBatch> m_uploads; // the queue "vrqsdk.metric.upload"
};
