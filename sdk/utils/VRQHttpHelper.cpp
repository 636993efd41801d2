#include "vrq/utils/VRQHttpHelper.h"

#include "vrq/log/VRQLog.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/Crypto.h"
#include "vrq/platform/services/HttpTransport.h"
#include "vrq/utils/VRQDigest.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRedaction.h"

#include <cstdlib>
#include <mutex>

namespace {

constexpr std::size_t kSignedPrefixLimit = 128;

struct Settings {
    std::mutex mutex;
    std::string baseHost;
    std::string experienceOrigin;
    std::string metricSigKey;
};

Settings& settings()
{
    static Settings* instance = [] {
        auto* s = new Settings;
        if (const char* origin = std::getenv("VRQ_METRICS_ORIGIN"))
            s->baseHost = origin;
        if (const char* origin = std::getenv("VRQ_EXPERIENCE_ORIGIN"))
            s->experienceOrigin = origin;
        return s;
    }();
    return *instance;
}

std::string_view untilZero(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

std::string percentEncode(std::string_view value)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : value) {
        const bool unreserved = std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved) {
            out.push_back(static_cast<char>(c));
        } else {
            out += '%';
            out += kDigits[c >> 4];
            out += kDigits[c & 0x0f];
        }
    }
    return out;
}

// Log lines and records may carry outside bytes that are not UTF-8: they are
// sent replaced (U+FFFD) rather than losing the whole bulk.
std::string jsonBytes(const nlohmann::json& dic)
{
    return dic.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void send(vrq::HttpRequest request, VRQHttpHelper::FinishBlock finishBlk, bool logFailure)
{
    const std::string url = request.url;
    vrq::HttpTransport::shared().send(std::move(request), [url, finishBlk = std::move(finishBlk), logFailure](
                                                              std::optional<vrq::HttpError> failure, vrq::HttpResponse response) {
        std::optional<VRQError> error;
        if (failure)
            error = VRQError{failure->domain, failure->code, failure->description, {}};
        if (finishBlk) {
            try {
                finishBlk(error, std::move(response.body));
            } catch (const std::exception& exception) {
                VRQ_LOG(3, "completion of %s threw: %s", vrq_redactedText(url).c_str(), exception.what());
            }
        }
        if (error && logFailure)
            VRQ_LOG(2, "post url:%s failed:%s", vrq_redactedText(url).c_str(), error->toString().c_str());
    });
}

} // namespace

void VRQHttpHelper::setBaseHost(const std::string& origin)
{
    std::lock_guard lock(settings().mutex);
    settings().baseHost = origin;
}

std::string VRQHttpHelper::baseHost()
{
    std::lock_guard lock(settings().mutex);
    return settings().baseHost;
}

void VRQHttpHelper::setExperienceSessionOrigin(const std::string& origin)
{
    std::lock_guard lock(settings().mutex);
    settings().experienceOrigin = origin;
}

std::string VRQHttpHelper::experienceSessionUrl()
{
    std::lock_guard lock(settings().mutex);
    return settings().experienceOrigin + "/CreateExperienceSession";
}

void VRQHttpHelper::setMetricSigKey(const std::string& key)
{
    std::lock_guard lock(settings().mutex);
    settings().metricSigKey = key;
}

std::string VRQHttpHelper::metricSigKey()
{
    std::lock_guard lock(settings().mutex);
    return settings().metricSigKey;
}

std::array<std::uint8_t, 32> hmacForKeyAndData(std::string_view key, std::string_view data)
{
    const std::string_view signedPart = untilZero(data).substr(0, kSignedPrefixLimit);
    return vrq::hmacSha256(untilZero(key), signedPart);
}

std::optional<std::string> VRQHttpHelper::calcMetricSigWithData(std::string_view data)
{
    const auto mac = hmacForKeyAndData(metricSigKey(), data);
    return vrq::toHex(mac.data(), mac.size());
}

std::optional<std::string> VRQHttpHelper::calcMetricSigWithDic(const nlohmann::json& dic)
{
    try {
        return calcMetricSigWithData(jsonBytes(dic));
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

void VRQHttpHelper::asyncRequestGet(const std::string& url, FinishBlock finishBlk)
{
    vrq::HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.timeout = std::chrono::milliseconds(static_cast<int>(kDefaultTimeout * 1000));
    send(std::move(request), std::move(finishBlk), false);
}

void VRQHttpHelper::asyncRquestPost(const std::string& url, const nlohmann::json& dic, FinishBlock finishBlk)
{
    std::string body;
    try {
        body = jsonBytes(dic);
    } catch (const nlohmann::json::exception& exception) {
        VRQ_LOG(2, "JSON serialization error:%s", exception.what());
        if (finishBlk) {
            VRQError error{"VRQJsonSerialization", exception.id, exception.what(), {}};
            vrq::dispatchMainAsync([finishBlk = std::move(finishBlk), error] { finishBlk(error, std::string()); });
        }
        return;
    }
    asyncRquestPost(url, std::move(body), std::move(finishBlk));
}

void VRQHttpHelper::asyncRquestPost(const std::string& url, std::string data, FinishBlock finishBlk)
{
    vrq::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.body = std::move(data);
    request.headers["Content-Type"] = "application/json";
    request.timeout = std::chrono::milliseconds(static_cast<int>(kDefaultTimeout * 1000));
    send(std::move(request), std::move(finishBlk), true);
}

void VRQHttpHelper::postBulk(const char* path, const nlohmann::json& dic)
{
    std::string url = baseHost() + path;
    const std::string key = metricSigKey();
    std::optional<std::string> body;
    std::optional<std::string> sig;
    if (!key.empty()) {
        try {
            body = jsonBytes(dic);
            sig = calcMetricSigWithData(*body);
        } catch (const nlohmann::json::exception&) {
        }
    }
    if (!sig) {
        VRQ_LOG(2, "Post exit no sig key:%s url:%s", vrq_redacted(key).c_str(), vrq_redactedText(url).c_str());
        return;
    }
    // The signed bytes are the bytes sent.
    asyncRquestPost(url + "?sig=" + *sig, std::move(*body));
}

void VRQHttpHelper::postMetricReports(const nlohmann::json& dic)
{
    postBulk(kReportBulkProxy, dic);
}

void VRQHttpHelper::postMetricLogs(const nlohmann::json& dic)
{
    postBulk(kLogBulkProxy, dic);
}

void VRQHttpHelper::createExperienceSession(const nlohmann::json& dic, FinishBlock finishBlk)
{
    asyncRquestPost(experienceSessionUrl(), dic, std::move(finishBlk));
}

std::string VRQHttpHelper::reconnectUrl(const std::string& serverIp, const std::string& token,
                                        const std::string& userId, std::int64_t timestampMs)
{
    const std::string ts = std::to_string(timestampMs);
    const std::string uid = vrq::base64Encode(userId);
    const std::string encodedToken = percentEncode(token);
    std::string url = "http://" + serverIp + ":" + std::to_string(kReconnectPort)
                      + "/cloud_gaming/reconnect?token=" + encodedToken + "&stream_id=" + encodedToken
                      + "&ts=" + ts + "&uid=" + percentEncode(uid);
    return url + "&sig=" + vrq_md5(token + ts + token);
}

void VRQHttpHelper::requestNewRemoteSdpAtServerIp(const std::string& serverIp, const std::string& token,
                                                  const std::string& userId, std::string localSdp,
                                                  FinishBlock finishBlk)
{
    asyncRquestPost(reconnectUrl(serverIp, token, userId, vrq::nowMs()), std::move(localSdp), std::move(finishBlk));
}
