#pragma once

#include <nlohmann/json.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace httplib {
class Server;
}

namespace vrqserver {

// The metrics service's ingest: "/report_metric_bulk" and "/report_log_bulk".
// A bulk is accepted only when its "sig" query value is the HMAC-SHA256, in
// lower-case hex, of the body's first 128 bytes (up to any zero byte) under
// the current key. Accepted and rejected bulks are kept for inspection.
class MetricsIngest {
public:
    struct Bulk {
        std::string path;
        nlohmann::json body;
        bool signatureValid = false;
    };

    explicit MetricsIngest(std::string key);
    void setKey(const std::string& key);
    std::string key() const;
    void install(httplib::Server& server);

    std::vector<Bulk> bulks() const;
    std::size_t recordCount(const std::string& path) const;
    std::size_t rejectedCount() const;

    static std::string signatureFor(const std::string& key, const std::string& body);

private:
    mutable std::mutex m_mutex;
    std::string m_key;
    std::vector<Bulk> m_bulks;
};

} // namespace vrqserver
