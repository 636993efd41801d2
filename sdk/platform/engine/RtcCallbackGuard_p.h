#pragma once

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace vrq::rtc {

// A non-owning pointer that callbacks on other threads borrow for the length
// of one call. reset() waits until borrows on other threads have ended, so
// once it returns the previous target is never used again. A borrow on the
// thread that calls reset() itself (a callback that closes its own source) is
// not waited for. No lock is held while a borrow is in use.
//
// Callbacks keep the guard alive through a std::shared_ptr, so a borrow may
// safely end after its target is gone.
template <class T>
class CallbackGuard {
public:
    explicit CallbackGuard(T* target = nullptr)
        : m_target(target)
    {
    }
    CallbackGuard(const CallbackGuard&) = delete;
    CallbackGuard& operator=(const CallbackGuard&) = delete;

    class Borrow {
    public:
        Borrow(Borrow&& other) noexcept
            : m_guard(std::exchange(other.m_guard, nullptr))
            , m_target(std::exchange(other.m_target, nullptr))
        {
        }
        Borrow(const Borrow&) = delete;
        Borrow& operator=(const Borrow&) = delete;
        Borrow& operator=(Borrow&&) = delete;
        ~Borrow()
        {
            if (m_guard)
                m_guard->release();
        }
        T* get() const { return m_target; }
        T* operator->() const { return m_target; }
        explicit operator bool() const { return m_target != nullptr; }

    private:
        friend class CallbackGuard;
        Borrow(CallbackGuard* guard, T* target)
            : m_guard(guard)
            , m_target(target)
        {
        }
        CallbackGuard* m_guard;
        T* m_target;
    };

    // An empty borrow when the target is null.
    Borrow borrow()
    {
        std::lock_guard lock(m_mutex);
        if (!m_target)
            return Borrow(nullptr, nullptr);
        m_borrowers.push_back(std::this_thread::get_id());
        return Borrow(this, m_target);
    }

    void reset(T* target)
    {
        const std::thread::id self = std::this_thread::get_id();
        std::unique_lock lock(m_mutex);
        m_target = target;
        m_released.wait(lock, [&] {
            return std::all_of(m_borrowers.begin(), m_borrowers.end(), [&](std::thread::id id) { return id == self; });
        });
    }

    // Whether the calling thread is inside a borrow (a callback of this guard).
    bool isBorrowedHere() const
    {
        std::lock_guard lock(m_mutex);
        return std::find(m_borrowers.begin(), m_borrowers.end(), std::this_thread::get_id()) != m_borrowers.end();
    }

private:
    void release()
    {
        {
            std::lock_guard lock(m_mutex);
            auto it = std::find(m_borrowers.begin(), m_borrowers.end(), std::this_thread::get_id());
            if (it != m_borrowers.end())
                m_borrowers.erase(it);
        }
        m_released.notify_all();
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    T* m_target;
    std::vector<std::thread::id> m_borrowers;
};

} // namespace vrq::rtc
