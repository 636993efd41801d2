#pragma once

#include "vrq/platform/engine/RtcTypes.h"

#include <memory>
#include <string>

namespace vrq::rtc {

class DataChannel;

// Receives a channel's events on the engine's own threads.
class DataChannelObserver {
public:
    virtual ~DataChannelObserver() = default;
    virtual void dataChannelDidChangeState(DataChannel& channel) = 0;
    virtual void dataChannelDidReceiveMessage(DataChannel& channel, const DataBuffer& buffer) = 0;
};

// One SCTP data channel of a peer connection. Thread-safe.
class DataChannel {
public:
    virtual ~DataChannel() = default;
    virtual std::string label() const = 0;
    virtual DataChannelState readyState() const = 0;
    // False when the channel is not open or the message could not be queued.
    virtual bool sendData(const DataBuffer& buffer) = 0;
    virtual void close() = 0;
    // Non-owning; cleared with nullptr. After setObserver(nullptr) returns, the
    // old observer is not called again.
    virtual void setObserver(DataChannelObserver* observer) = 0;
};

} // namespace vrq::rtc
