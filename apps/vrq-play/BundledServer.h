#pragma once

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>

namespace vrqserver {
class ReferenceServer;
}

// The reference back end and game server, run in-process on one loopback
// address when no other back end is named: sessions, experience codes,
// reconnects on the fixed reconnect port, and the signed metrics ingest.
// Used from the main thread.
class BundledServer {
public:
    // Nothing, with a reason in *error, when the reconnect port on that host is
    // taken or the server cannot start.
    static std::unique_ptr<BundledServer> start(const std::string& host, std::string* error);
    ~BundledServer();
    BundledServer(const BundledServer&) = delete;
    BundledServer& operator=(const BundledServer&) = delete;

    std::string origin() const;
    std::string metricKey() const;

    // What the metrics ingest accepted: "metric_records", "log_records",
    // "bulks", "rejected_bulks" and "all_signed" (at least one bulk, none rejected).
    nlohmann::json ingestSummary() const;
    // How many input messages of each type the game sessions received:
    // {"km": {type: count}, "ack": {type: count}, "key_seq": {type: count}},
    // the last counting the instructions inside the key sequences.
    nlohmann::json inputSummary() const;

    void stop();

private:
    explicit BundledServer(std::unique_ptr<vrqserver::ReferenceServer> server);

    std::unique_ptr<vrqserver::ReferenceServer> m_server;
};
