#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

// Non-owning references by key. Entries are not cleared when their object is
// destroyed: remove an entry before destroying what it points to. Not
// thread-safe; the owner serialises access.
template <typename T>
class VRQWeakDictionary {
public:
    void vrq_setWeakObject(T* object, std::string key) { m_objects.insert_or_assign(std::move(key), object); }

    // The stored pointer, or nullptr when the key is absent.
    T* vrq_weakObjectForKey(std::string_view key) const
    {
        const auto it = m_objects.find(key);
        return it == m_objects.end() ? nullptr : it->second;
    }

    void removeObjectForKey(std::string_view key)
    {
        const auto it = m_objects.find(key);
        if (it != m_objects.end())
            m_objects.erase(it);
    }

    std::size_t size() const { return m_objects.size(); }
    bool empty() const { return m_objects.empty(); }

private:
    std::map<std::string, T*, std::less<>> m_objects;
};
