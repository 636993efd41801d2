#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace vrqserver {

// Relays between a session's data channels and UDP services on the server's
// host. Each route binds its own socket on an ephemeral port of the host:
// what arrives on the route's channel goes out of that socket as one
// datagram to host:destPort, and every datagram the socket receives comes
// back as one message on the channel.
//
// One thread serves every route (poll, woken through a pipe); it starts with
// the first route and ends with stop(). Thread-safe.
class UdpRelay {
public:
    // Called on the relay's thread with a datagram that came back to a
    // route's socket. It may end the relay (even destroy it).
    using Deliver = std::function<void(const std::string& label, const std::string& bytes)>;

    static constexpr std::size_t kMaxRoutes = 16;

    UdpRelay(std::string host, Deliver deliver);
    ~UdpRelay();
    UdpRelay(const UdpRelay&) = delete;
    UdpRelay& operator=(const UdpRelay&) = delete;

    // Routes the label to destPort, binding the route's socket on first use
    // (a label routed again keeps its socket and takes the new port). False
    // when the port is not 1 to 65535, the socket cannot be bound, kMaxRoutes
    // labels are routed already, or the relay has stopped.
    bool addRoute(const std::string& label, int destPort);
    // Sends the bytes as one datagram on the label's route; false when there is none.
    bool send(const std::string& label, const std::string& bytes);
    // The port the label's socket is bound to.
    std::optional<int> localPort(const std::string& label) const;

    // Ends the thread and closes every socket. Idempotent; may be called from Deliver.
    void stop();

private:
    struct Shared;
    static void serve(const std::shared_ptr<Shared>& shared);

    const std::shared_ptr<Shared> m_shared;
};

} // namespace vrqserver
