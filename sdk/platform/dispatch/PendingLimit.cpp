#include "vrq/platform/dispatch/PendingLimit.h"

#include "vrq/platform/services/LogBackend.h"

namespace vrq {

PendingLimit::PendingLimit(std::string what, std::size_t maxTasks, std::size_t maxBytes)
    : m_what(std::move(what))
    , m_maxTasks(maxTasks)
    , m_maxBytes(maxBytes)
{
}

std::shared_ptr<PendingLimit> PendingLimit::make(std::string what, std::size_t maxTasks, std::size_t maxBytes)
{
    return std::make_shared<PendingLimit>(std::move(what), maxTasks, maxBytes);
}

bool PendingLimit::tryEnter(std::size_t bytes)
{
    const std::size_t tasks = m_tasks.fetch_add(1) + 1;
    const std::size_t held = m_bytes.fetch_add(bytes) + bytes;
    if (tasks <= m_maxTasks && held <= m_maxBytes)
        return true;
    m_tasks.fetch_sub(1);
    m_bytes.fetch_sub(bytes);
    m_dropped.fetch_add(1);
    if (m_droppedInBurst.fetch_add(1) == 0) {
        logging::logEx(logging::kWarning, "(PendingLimit.cpp) " + m_what + ": " + std::to_string(tasks - 1) + " waiting ("
                                              + std::to_string(held - bytes) + " bytes), the limit; dropping until they drain");
    }
    return false;
}

void PendingLimit::leave(std::size_t bytes)
{
    m_bytes.fetch_sub(bytes);
    const std::size_t tasks = m_tasks.fetch_sub(1) - 1;
    if (tasks > m_maxTasks / 2 || m_droppedInBurst.load() == 0)
        return;
    if (const std::uint64_t dropped = m_droppedInBurst.exchange(0); dropped > 0)
        logging::logEx(logging::kWarning, "(PendingLimit.cpp) " + m_what + ": dropped " + std::to_string(dropped));
}

} // namespace vrq
