#include "UdpRelay.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace vrqserver {

namespace {

constexpr int kPollTimeoutMs = 500;    // the loop also rechecks for stop() this often
constexpr std::size_t kBurst = 64;     // datagrams read from one socket per wake-up
constexpr std::size_t kMaxDatagram = 65536;

struct Route {
    int socket = -1;
    sockaddr_in destination{};
    int localPort = 0;
};

std::optional<sockaddr_in> addressOf(const std::string& host, int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        return std::nullopt;
    return address;
}

sockaddr* asSockaddr(sockaddr_in* address)
{
    return reinterpret_cast<sockaddr*>(address);
}

// A non-blocking UDP socket bound to an ephemeral port of the host, with that port.
std::optional<std::pair<int, int>> bindSocket(const std::string& host)
{
    auto address = addressOf(host, 0);
    if (!address)
        return std::nullopt;
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return std::nullopt;
    socklen_t length = sizeof *address;
    if (::bind(fd, asSockaddr(&*address), sizeof *address) != 0 || ::getsockname(fd, asSockaddr(&*address), &length) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    return std::make_pair(fd, static_cast<int>(ntohs(address->sin_port)));
}

} // namespace

// What the relay's thread shares with the relay: the thread keeps it alive,
// so a relay destroyed from inside Deliver leaves the thread nothing dangling.
// The sockets close once the thread no longer polls them: right after it
// was joined, or by the thread itself when stop() came from inside Deliver.
struct UdpRelay::Shared {
    Shared(std::string relayHost, Deliver relayDeliver)
        : host(std::move(relayHost))
        , deliver(std::move(relayDeliver))
    {
        int fds[2] = {-1, -1};
        if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0) {
            wakeRead = fds[0];
            wakeWrite = fds[1];
        }
    }
    ~Shared()
    {
        closeRoutes();
        for (int fd : {wakeRead, wakeWrite})
            if (fd >= 0)
                ::close(fd);
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    // mutex held, or no other user left.
    void closeRoutes()
    {
        for (const auto& [label, route] : routes)
            ::close(route.socket);
        routes.clear();
    }

    void wake() const
    {
        const char byte = 0;
        [[maybe_unused]] const auto written = ::write(wakeWrite, &byte, 1);
    }

    const std::string host;
    const Deliver deliver;
    int wakeRead = -1;
    int wakeWrite = -1;

    mutable std::mutex mutex;
    std::map<std::string, Route> routes; // guarded by mutex
    std::thread thread;                  // guarded by mutex
    bool stopped = false;                // guarded by mutex
};

UdpRelay::UdpRelay(std::string host, Deliver deliver)
    : m_shared(std::make_shared<Shared>(std::move(host), std::move(deliver)))
{
}

UdpRelay::~UdpRelay()
{
    stop();
}

bool UdpRelay::addRoute(const std::string& label, int destPort)
{
    if (destPort < 1 || destPort > 65535 || m_shared->wakeRead < 0)
        return false;
    const auto destination = addressOf(m_shared->host, destPort);
    if (!destination)
        return false;
    std::lock_guard lock(m_shared->mutex);
    if (m_shared->stopped)
        return false;
    if (auto found = m_shared->routes.find(label); found != m_shared->routes.end()) {
        found->second.destination = *destination;
        return true;
    }
    if (m_shared->routes.size() >= kMaxRoutes)
        return false;
    const auto bound = bindSocket(m_shared->host);
    if (!bound)
        return false;
    m_shared->routes[label] = Route{bound->first, *destination, bound->second};
    if (!m_shared->thread.joinable())
        m_shared->thread = std::thread([shared = m_shared] { serve(shared); });
    m_shared->wake(); // the thread polls the new socket from now on
    return true;
}

// Under the lock, so that stop() cannot close the socket meanwhile; the
// socket never blocks.
bool UdpRelay::send(const std::string& label, const std::string& bytes)
{
    std::lock_guard lock(m_shared->mutex);
    auto found = m_shared->routes.find(label);
    if (m_shared->stopped || found == m_shared->routes.end())
        return false;
    Route& route = found->second;
    return ::sendto(route.socket, bytes.data(), bytes.size(), 0, asSockaddr(&route.destination), sizeof route.destination) ==
           static_cast<ssize_t>(bytes.size());
}

std::optional<int> UdpRelay::localPort(const std::string& label) const
{
    std::lock_guard lock(m_shared->mutex);
    auto found = m_shared->routes.find(label);
    return found == m_shared->routes.end() ? std::nullopt : std::optional<int>(found->second.localPort);
}

void UdpRelay::stop()
{
    std::thread thread;
    {
        std::lock_guard lock(m_shared->mutex);
        if (m_shared->stopped)
            return;
        m_shared->stopped = true;
        thread = std::move(m_shared->thread);
    }
    m_shared->wake();
    // From inside Deliver the thread cannot join itself; it sees the flag,
    // closes the sockets and ends on its own.
    if (thread.joinable() && thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
        return;
    }
    if (thread.joinable())
        thread.join();
    std::lock_guard lock(m_shared->mutex);
    m_shared->closeRoutes();
}

void UdpRelay::serve(const std::shared_ptr<Shared>& shared)
{
    std::vector<char> buffer(kMaxDatagram);
    for (;;) {
        std::vector<pollfd> polled{{shared->wakeRead, POLLIN, 0}};
        std::vector<std::string> labels{""};
        {
            std::lock_guard lock(shared->mutex);
            if (shared->stopped) {
                shared->closeRoutes();
                return;
            }
            for (const auto& [label, route] : shared->routes) {
                polled.push_back({route.socket, POLLIN, 0});
                labels.push_back(label);
            }
        }
        if (::poll(polled.data(), polled.size(), kPollTimeoutMs) <= 0)
            continue;
        while (::read(shared->wakeRead, buffer.data(), buffer.size()) > 0) {
        }
        for (std::size_t index = 1; index < polled.size(); ++index) {
            if (!(polled[index].revents & POLLIN))
                continue;
            for (std::size_t count = 0; count < kBurst; ++count) {
                const ssize_t received = ::recv(polled[index].fd, buffer.data(), buffer.size(), 0);
                if (received < 0)
                    break;
                shared->deliver(labels[index], std::string(buffer.data(), static_cast<std::size_t>(received)));
            }
        }
    }
}

} // namespace vrqserver
