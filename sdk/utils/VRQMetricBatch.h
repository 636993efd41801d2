#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vrq {
class SerialQueue;
}

// Records waiting on a serial queue for upload in bulk as
// {"metric": <metric>, "bulk": [records in order]}. A full batch is posted at
// once from the queue, so every batch holds exactly batchSize records; the
// list is emptied when it is handed over, and nothing is retried.
class VRQMetricBatch {
public:
    using Post = std::function<void(const nlohmann::json& body)>;

    VRQMetricBatch(const std::string& queueLabel, std::string metric, std::size_t batchSize, Post post);
    ~VRQMetricBatch();

    // Makes the record on the queue, so it may read state confined there.
    void append(std::function<nlohmann::json()> makeRecord);
    // Runs other queue-confined work in order with the records.
    void async(std::function<void()> task);
    // Posts what is pending, if anything.
    void flush();
    // Blocks until everything handed over so far has been batched or posted.
    void waitUntilIdle();

private:
    void postPending();
    void postPendingLocked();

    std::string m_metric;
    std::size_t m_batchSize;
    Post m_post;
    std::vector<nlohmann::json> m_pending; // touched only on m_queue
    std::unique_ptr<vrq::SerialQueue> m_queue;
};
