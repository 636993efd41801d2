#include "ChannelMessageLog.h"

namespace vrqserver {

void ChannelMessageLog::append(ChannelMessage message)
{
    {
        std::lock_guard lock(m_mutex);
        m_messages.push_back(std::move(message));
    }
    m_changed.notify_all();
}

std::vector<ChannelMessage> ChannelMessageLog::messages() const
{
    std::lock_guard lock(m_mutex);
    return m_messages;
}

std::vector<ChannelMessage> ChannelMessageLog::messagesOn(const std::string& label) const
{
    std::vector<ChannelMessage> found;
    std::lock_guard lock(m_mutex);
    for (const auto& message : m_messages)
        if (message.label == label)
            found.push_back(message);
    return found;
}

bool ChannelMessageLog::waitUntil(const Predicate& predicate, std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return predicate(m_messages); });
}

} // namespace vrqserver
