#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace vrq {

struct Notification {
    std::string name;
    const void* object = nullptr;
};

// Observers registered by notification name. post() calls the observers of
// that name synchronously on the posting thread, without holding a lock.
class NotificationCenter {
public:
    using Observer = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    Token addObserver(const std::string& name, Observer observer);
    void removeObserver(Token token);
    void post(const std::string& name, const void* object);

private:
    struct Entry {
        std::string name;
        Observer observer;
    };
    std::mutex m_mutex;
    std::map<Token, Entry> m_observers;
    Token m_nextToken = 1;
};

} // namespace vrq
