#include "vrq/utils/VRQMetricBatch.h"

#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/services/Crypto.h"

#include <cstdlib>
#include <mutex>

namespace {

// The batches' queues live until the process ends and may be making records
// (a new device id takes random bytes) or posting (signing with OpenSSL) while
// it exits. The crypto library tears itself down after the exit handlers
// registered after its set-up have run: this one, registered after it, lets
// the work in flight finish and lets no other start, so that none meets a
// library already gone.
std::mutex& exitMutex()
{
    static auto* mutex = new std::mutex; // never destroyed: used until the very end
    return *mutex;
}
bool gExiting = false; // guarded by exitMutex()

void stopPostingAtExit()
{
    std::lock_guard lock(exitMutex());
    gExiting = true;
}

} // namespace

VRQMetricBatch::VRQMetricBatch(const std::string& queueLabel, std::string metric, std::size_t batchSize, Post post)
    : m_metric(std::move(metric))
    , m_batchSize(batchSize)
    , m_post(std::move(post))
    , m_queue(std::make_unique<vrq::SerialQueue>(queueLabel))
{
    static std::once_flag once;
    std::call_once(once, [] {
        vrq::initCrypto();
        std::atexit(stopPostingAtExit);
    });
}

VRQMetricBatch::~VRQMetricBatch() = default;

void VRQMetricBatch::append(std::function<nlohmann::json()> makeRecord)
{
    m_queue->async([this, makeRecord = std::move(makeRecord)] {
        std::lock_guard lock(exitMutex());
        if (gExiting)
            return;
        m_pending.push_back(makeRecord());
        if (m_pending.size() >= m_batchSize)
            postPendingLocked();
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
    std::lock_guard lock(exitMutex());
    postPendingLocked();
}

// Called with exitMutex() held.
void VRQMetricBatch::postPendingLocked()
{
    if (m_pending.empty() || gExiting)
        return;
    const nlohmann::json body = {{"metric", m_metric}, {"bulk", std::move(m_pending)}};
    m_pending.clear();
    m_post(body);
}
