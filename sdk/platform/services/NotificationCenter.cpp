#include "vrq/platform/services/NotificationCenter.h"

#include <vector>

namespace vrq {

NotificationCenter& NotificationCenter::defaultCenter()
{
    static auto* center = new NotificationCenter; // lives for the whole process
    return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const std::string& name, Observer observer)
{
    std::lock_guard lock(m_mutex);
    const Token token = m_nextToken++;
    m_observers.emplace(token, Entry{name, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token)
{
    std::lock_guard lock(m_mutex);
    m_observers.erase(token);
}

void NotificationCenter::post(const std::string& name, const void* object)
{
    std::vector<Observer> matching;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [token, entry] : m_observers)
            if (entry.name == name)
                matching.push_back(entry.observer);
    }
    const Notification notification{name, object};
    for (const auto& observer : matching)
        observer(notification);
}

} // namespace vrq
