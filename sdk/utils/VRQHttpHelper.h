#pragma once

#include "vrq/utils/VRQError.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// The kit's few HTTP exchanges: signed metric and log bulks, the
// experience-session request, the signed reconnect request and a plain GET.
// Every operation may be called from any thread. Completions always run on
// the main thread; an answer of any HTTP status counts as success.
class VRQHttpHelper {
public:
    using FinishBlock = std::function<void(std::optional<VRQError> error, std::string body)>;

    static constexpr const char* kReportBulkProxy = "/report_metric_bulk";
    static constexpr const char* kLogBulkProxy = "/report_log_bulk";
    static constexpr double kDefaultTimeout = 10.0;
    static constexpr int kReconnectPort = 7392;

    // Deployment settings. The metrics origin defaults to $VRQ_METRICS_ORIGIN and
    // the experience origin to $VRQ_EXPERIENCE_ORIGIN; both are "" when unset,
    // which makes every request to them fail (and be logged) without leaving the machine.
    static void setBaseHost(const std::string& origin);
    static std::string baseHost();
    static void setExperienceSessionOrigin(const std::string& origin);
    static std::string experienceSessionUrl();

    static void setMetricSigKey(const std::string& key);
    static std::string metricSigKey();
    static std::optional<std::string> calcMetricSigWithDic(const nlohmann::json& dic);
    static std::optional<std::string> calcMetricSigWithData(std::string_view data);

    static void asyncRequestGet(const std::string& url, FinishBlock finishBlk = nullptr);
    static void asyncRquestPost(const std::string& url, const nlohmann::json& dic, FinishBlock finishBlk = nullptr);
    static void asyncRquestPost(const std::string& url, std::string data, FinishBlock finishBlk = nullptr);

    static void postMetricReports(const nlohmann::json& dic);
    static void postMetricLogs(const nlohmann::json& dic);
    static void createExperienceSession(const nlohmann::json& dic, FinishBlock finishBlk);
    // The token is sent percent-encoded; the signature covers the raw values.
    static void requestNewRemoteSdpAtServerIp(const std::string& serverIp, const std::string& token,
                                              const std::string& userId, std::string localSdp,
                                              FinishBlock finishBlk);
    // The reconnect URL for a given time, without sending anything.
    static std::string reconnectUrl(const std::string& serverIp, const std::string& token,
                                    const std::string& userId, std::int64_t timestampMs);

private:
    static void postBulk(const char* path, const nlohmann::json& dic);
};

// HMAC-SHA256 of the key (up to its first zero byte) over the data up to its
// first zero byte and at most its first 128 bytes. The metrics service
// verifies exactly this truncated form, so longer bodies share a signature
// when their first 128 bytes agree.
std::array<std::uint8_t, 32> hmacForKeyAndData(std::string_view key, std::string_view data);
