#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace vrqserver {

// The round-trip detection text that rides in a SEI payload of every video
// frame: three prefix characters, then {"rtt_detect":[<client element>, <server element>]}.
//
// The client element is the first "rtt_detect" element of the latest heartbeat,
// echoed unchanged. The server element is {"id":"srv","r":R,"s":T}, where R is
// the heartbeat's arrival time and T the frame's send time, both as offsets from
// the client element's "base". The client subtracts the time spent here (T - R)
// from its own round trip, which leaves the time the bytes spent travelling.
//
// Thread-safe: heartbeats come from the session's queue, texts are asked for on
// the encoder's streaming thread.
class RttDetectSei {
public:
    static constexpr const char* kPrefix = "VRQ";

    // Keeps the heartbeat's first "rtt_detect" element when it is an object with
    // an integer "base" and "s"; otherwise the heartbeat is ignored and false returned.
    bool onHeartbeat(const nlohmann::json& heartbeat, std::int64_t arrivalMs);

    // The SEI text for a frame sent at sendMs, or an empty text (no SEI) until a
    // usable heartbeat has arrived.
    std::string text(std::int64_t sendMs) const;

private:
    mutable std::mutex m_mutex;
    std::optional<nlohmann::json> m_clientElement; // guarded by m_mutex
    std::int64_t m_base = 0;                       // guarded by m_mutex
    std::int64_t m_arrivalMs = 0;                  // guarded by m_mutex
};

} // namespace vrqserver
