#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "vrq/platform/engine/RtcStatistics.h"

// The running statistics of one play session: session identity, round-trip
// times, the remote host's load and the received video and audio figures.
//
// Threads: written from the statistics thread, the main thread and the report
// queue, and read from all of them. Every field is safe to access from any
// thread: numbers are atomics and text is guarded by a mutex. Fields are
// independent, so a reader may see values from different samples.
class VRQSDKReport {
public:
    VRQSDKReport() = default;
    VRQSDKReport(const VRQSDKReport&) = delete;
    VRQSDKReport& operator=(const VRQSDKReport&) = delete;

    // Legacy "ssrc" reports: frame rate, packet counters, delays and the video
    // bit rate computed between this sample and the previous one. The first
    // overload takes the sample time from the wall clock.
    void updateWithRtcInfo(const std::vector<vrq::LegacyStatsReport>& reports);
    void updateWithRtcInfo(const std::vector<vrq::LegacyStatsReport>& reports, std::int64_t sampleTimeMs);
    // Standard statistics: the candidate pair's round trip and video freezes.
    void updateWithRtcStats(const vrq::StatsReport& stats);
    // The remote host's figures: "cpu_usage", "gpu_usage", "screen_width" and
    // "screen_height"; a missing one resets its field.
    void updateWithRemoteInfos(const nlohmann::json& infos);

    // Text block for an on-screen overlay: one "label value" line per figure.
    std::string description() const;
    // The figures as a JSON object of 22 members for the host application.
    nlohmann::json currentReport() const;

    std::string requestID() const { return locked(m_requestID); }
    void setRequestID(std::string value) { assignLocked(m_requestID, std::move(value)); }
    std::string serverIP() const { return locked(m_serverIP); }
    void setServerIP(std::string value) { assignLocked(m_serverIP, std::move(value)); }
    std::string region() const { return locked(m_region); }
    void setRegion(std::string value) { assignLocked(m_region, std::move(value)); }
    std::string gpuUsage() const { return locked(m_gpuUsage); }
    void setGpuUsage(std::string value) { assignLocked(m_gpuUsage, std::move(value)); }

    // Empty until the session, a heartbeat reply or a network change sets them.
    std::string token() const { return locked(m_token); }
    void setToken(std::string value) { assignLocked(m_token, std::move(value)); }
    std::string userID() const { return locked(m_userID); }
    void setUserID(std::string value) { assignLocked(m_userID, std::move(value)); }
    std::string gameID() const { return locked(m_gameID); }
    void setGameID(std::string value) { assignLocked(m_gameID, std::move(value)); }
    std::string deviceID() const { return locked(m_deviceID); }
    void setDeviceID(std::string value) { assignLocked(m_deviceID, std::move(value)); }
    std::string networkType() const { return locked(m_networkType); }
    void setNetworkType(std::string value) { assignLocked(m_networkType, std::move(value)); }
    // A JSON number; null until set.
    nlohmann::json appID() const { return locked(m_appID); }
    void setAppID(nlohmann::json value) { assignLocked(m_appID, std::move(value)); }

    std::uint64_t rttMS() const { return m_rttMS; }
    void setRttMS(std::uint64_t value) { m_rttMS = value; }
    std::uint64_t rawRttMS() const { return m_rawRttMS; }
    void setRawRttMS(std::uint64_t value) { m_rawRttMS = value; }
    std::uint64_t totalTransMS() const { return m_totalTransMS; }
    void setTotalTransMS(std::uint64_t value) { m_totalTransMS = value; }
    // Reads and clears in one step, so that a measurement stored meanwhile by
    // another thread is neither lost nor reported twice.
    std::uint64_t takeTotalTransMS() { return m_totalTransMS.exchange(0); }
    float cpuUsage() const { return m_cpuUsage; }
    void setCpuUsage(float value) { m_cpuUsage = value; }
    std::uint64_t screenHeight() const { return m_screenHeight; }
    void setScreenHeight(std::uint64_t value) { m_screenHeight = value; }
    std::uint64_t screenWidth() const { return m_screenWidth; }
    void setScreenWidth(std::uint64_t value) { m_screenWidth = value; }
    std::uint64_t videoDelay() const { return m_videoDelay; }
    void setVideoDelay(std::uint64_t value) { m_videoDelay = value; }
    std::uint64_t videoPacketLost() const { return m_videoPacketLost; }
    void setVideoPacketLost(std::uint64_t value) { m_videoPacketLost = value; }
    std::uint64_t videoPacketRecv() const { return m_videoPacketRecv; }
    void setVideoPacketRecv(std::uint64_t value) { m_videoPacketRecv = value; }
    std::uint64_t videoJitterBuffer() const { return m_videoJitterBuffer; }
    void setVideoJitterBuffer(std::uint64_t value) { m_videoJitterBuffer = value; }
    std::uint64_t videoNack() const { return m_videoNack; }
    void setVideoNack(std::uint64_t value) { m_videoNack = value; }
    std::uint64_t videoDecodeMS() const { return m_videoDecodeMS; }
    void setVideoDecodeMS(std::uint64_t value) { m_videoDecodeMS = value; }
    std::uint64_t videoBitrateKb() const { return m_videoBitrateKb; }
    void setVideoBitrateKb(std::uint64_t value) { m_videoBitrateKb = value; }
    float videoFreezeCount() const { return m_videoFreezeCount; }
    void setVideoFreezeCount(float value) { m_videoFreezeCount = value; }
    float videoFreezeDuration() const { return m_videoFreezeDuration; }
    void setVideoFreezeDuration(float value) { m_videoFreezeDuration = value; }
    float fps() const { return m_fps; }
    void setFps(float value) { m_fps = value; }
    std::uint64_t audioDelay() const { return m_audioDelay; }
    void setAudioDelay(std::uint64_t value) { m_audioDelay = value; }
    std::uint64_t audioLost() const { return m_audioLost; }
    void setAudioLost(std::uint64_t value) { m_audioLost = value; }
    std::uint64_t audioJitterBuffer() const { return m_audioJitterBuffer; }
    void setAudioJitterBuffer(std::uint64_t value) { m_audioJitterBuffer = value; }

private:
    using Values = std::map<std::string, std::string>;

    void applyVideo(const Values& values, std::int64_t sampleTimeMs);
    void applyAudio(const Values& values);
    void updateBitrate(std::uint64_t totalBytes, std::int64_t sampleTimeMs);

    template <typename T>
    T locked(const T& field) const
    {
        std::lock_guard lock(m_textMutex);
        return field;
    }
    template <typename T>
    void assignLocked(T& field, T value)
    {
        std::lock_guard lock(m_textMutex);
        field = std::move(value);
    }

    // The previous legacy sample, read and replaced together.
    std::mutex m_sampleMutex;
    std::uint64_t m_lastTotalBytesReceived = 0; // guarded by m_sampleMutex; 0 = no sample yet
    std::int64_t m_lastTotalBytesTimeMs = 0;    // guarded by m_sampleMutex

    mutable std::mutex m_textMutex;
    std::string m_requestID;                  // guarded by m_textMutex
    std::string m_serverIP;                   // guarded by m_textMutex
    std::string m_region;                     // guarded by m_textMutex
    std::string m_gpuUsage;                   // guarded by m_textMutex
    std::string m_token;                      // guarded by m_textMutex
    std::string m_userID;                     // guarded by m_textMutex
    std::string m_gameID;                     // guarded by m_textMutex
    std::string m_deviceID;                   // guarded by m_textMutex
    std::string m_networkType;                // guarded by m_textMutex
    nlohmann::json m_appID;                   // guarded by m_textMutex

    std::atomic<std::uint64_t> m_rttMS = 0;
    std::atomic<std::uint64_t> m_rawRttMS = 0;
    std::atomic<std::uint64_t> m_totalTransMS = 0;
    std::atomic<float> m_cpuUsage = 0;
    std::atomic<std::uint64_t> m_screenHeight = 0;
    std::atomic<std::uint64_t> m_screenWidth = 0;
    std::atomic<std::uint64_t> m_videoDelay = 0;
    std::atomic<std::uint64_t> m_videoPacketLost = 0;
    std::atomic<std::uint64_t> m_videoPacketRecv = 0;
    std::atomic<std::uint64_t> m_videoJitterBuffer = 0;
    std::atomic<std::uint64_t> m_videoNack = 0;
    std::atomic<std::uint64_t> m_videoDecodeMS = 0;
    std::atomic<std::uint64_t> m_videoBitrateKb = 0;
    std::atomic<float> m_videoFreezeCount = 0;
    std::atomic<float> m_videoFreezeDuration = 0;
    std::atomic<float> m_fps = 0;
    std::atomic<std::uint64_t> m_audioDelay = 0;
    std::atomic<std::uint64_t> m_audioLost = 0;
    std::atomic<std::uint64_t> m_audioJitterBuffer = 0;
};
