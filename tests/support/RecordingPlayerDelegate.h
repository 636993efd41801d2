#pragma once

#include "vrq/core/VRQGamePlayerDelegate.h"
#include "vrq/platform/dispatch/MainLoop.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace vrqtest {

// Records every player callback as a short text ("init", "video",
// "failure:10009", "reconnect:10002", "size:640x360", "orientation:3",
// "process_run", "init_failure:10001"), and whether each came on the main thread.
class RecordingPlayerDelegate : public VRQGamePlayerDelegate {
public:
    void onInitSuccess(const std::string& clientSession) override
    {
        std::lock_guard lock(m_mutex);
        m_clientSession = clientSession;
        recordLocked("init");
    }
    void onInitFailure(int code, const VRQError&) override { record("init_failure:" + std::to_string(code)); }
    void onConnectionFailure(int code, const std::optional<VRQError>&) override
    {
        record("failure:" + std::to_string(code));
    }
    void onStartReConnectWithReason(int code) override { record("reconnect:" + std::to_string(code)); }
    void onVideoShow() override { record("video"); }
    void onVideoSizeChanged(vrq::Size size) override
    {
        record("size:" + std::to_string(static_cast<int>(size.width)) + "x"
               + std::to_string(static_cast<int>(size.height)));
    }
    void onVideoOrientationChanged(std::int64_t orientation) override
    {
        record("orientation:" + std::to_string(orientation));
    }
    void onGameProcessRun() override { record("process_run"); }

    std::vector<std::string> events() const
    {
        std::lock_guard lock(m_mutex);
        return m_events;
    }
    std::size_t count(const std::string& event) const
    {
        std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(std::count(m_events.begin(), m_events.end(), event));
    }
    bool has(const std::string& event) const { return count(event) > 0; }
    std::string clientSession() const
    {
        std::lock_guard lock(m_mutex);
        return m_clientSession;
    }
    bool allOnMainThread() const
    {
        std::lock_guard lock(m_mutex);
        return m_allOnMain;
    }

private:
    void record(const std::string& event)
    {
        std::lock_guard lock(m_mutex);
        recordLocked(event);
    }
    void recordLocked(const std::string& event)
    {
        m_events.push_back(event);
        m_allOnMain = m_allOnMain && vrq::isMainThread();
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_events;
    std::string m_clientSession;
    bool m_allOnMain = true;
};

} // namespace vrqtest
