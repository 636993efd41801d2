#include "vrq/utils/VRQMetricBatch.h"

#include "vrq/platform/dispatch/SerialQueue.h"

VRQMetricBatch::VRQMetricBatch(const std::string& queueLabel, std::string metric, std::size_t batchSize, Post post)
    : m_metric(std::move(metric))
    , m_batchSize(batchSize)
    , m_post(std::move(post))
    , m_queue(std::make_unique<vrq::SerialQueue>(queueLabel))
{
}

VRQMetricBatch::~VRQMetricBatch() = default;

void VRQMetricBatch::append(std::function<nlohmann::json()> makeRecord)
{
    m_queue->async([this, makeRecord = std::move(makeRecord)] {
        m_pending.push_back(makeRecord());
        if (m_pending.size() >= m_batchSize)
            postPending();
    });
}

void VRQMetricBatch::async(std::function<void()> task)
{
    m_queue->async(std::move(task));
}

void VRQMetricBatch::flush()
{
    m_queue->async([this] { postPending(); });
}

void VRQMetricBatch::waitUntilIdle()
{
    m_queue->sync([] {});
}

void VRQMetricBatch::postPending()
{
    if (m_pending.empty())
        return;
    const nlohmann::json body = {{"metric", m_metric}, {"bulk", std::move(m_pending)}};
    m_pending.clear();
    m_post(body);
}
