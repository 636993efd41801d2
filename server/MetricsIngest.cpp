#include "MetricsIngest.h"

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdio>

namespace vrqserver {

MetricsIngest::MetricsIngest(std::string key)
    : m_key(std::move(key))
{
}

void MetricsIngest::setKey(const std::string& key)
{
    std::lock_guard lock(m_mutex);
    m_key = key;
}

std::string MetricsIngest::key() const
{
    std::lock_guard lock(m_mutex);
    return m_key;
}

std::string MetricsIngest::signatureFor(const std::string& key, const std::string& body)
{
    const std::size_t length = std::min({body.find('\0'), body.size(), std::size_t(128)});
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(body.data()),
         length, mac, &size);
    std::string hex;
    char digits[3];
    for (unsigned int i = 0; i < size; ++i) {
        std::snprintf(digits, sizeof digits, "%02x", mac[i]);
        hex += digits;
    }
    return hex;
}

void MetricsIngest::install(httplib::Server& server)
{
    auto ingest = [this](const httplib::Request& request, httplib::Response& response) {
        Bulk bulk;
        bulk.path = request.path;
        bulk.body = nlohmann::json::parse(request.body, nullptr, false);
        bulk.signatureValid = request.get_param_value("sig") == signatureFor(key(), request.body);
        response.status = bulk.signatureValid ? 200 : 403;
        response.set_content(bulk.signatureValid ? R"({"code":0})" : R"({"code":403})", "application/json");
        std::lock_guard lock(m_mutex);
        m_bulks.push_back(std::move(bulk));
    };
    server.Post("/report_metric_bulk", ingest);
    server.Post("/report_log_bulk", ingest);
}

std::vector<MetricsIngest::Bulk> MetricsIngest::bulks() const
{
    std::lock_guard lock(m_mutex);
    return m_bulks;
}

std::size_t MetricsIngest::recordCount(const std::string& path) const
{
    std::size_t count = 0;
    for (const auto& bulk : bulks())
        if (bulk.path == path && bulk.signatureValid && bulk.body.contains("bulk"))
            count += bulk.body["bulk"].size();
    return count;
}

std::size_t MetricsIngest::rejectedCount() const
{
    std::size_t count = 0;
    for (const auto& bulk : bulks())
        count += bulk.signatureValid ? 0 : 1;
    return count;
}

} // namespace vrqserver
