#include "vrq/platform/services/NetworkFlagsSource.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/services/LogBackend.h"

#include <gio/gio.h>

#include <array>
#include <exception>
#include <map>
#include <mutex>
#include <vector>

namespace vrq {
namespace {

constexpr int kDBusTimeoutMs = 300;
constexpr std::uint32_t kFlagsBeforeSetUp = kReachabilityFlagsReachable;

// NetworkManager's connection types that ride on a cellular (or other wide-area) radio.
constexpr std::array<std::string_view, 4> kWideAreaConnectionTypes = {"gsm", "cdma", "wimax", "wwan"};

void logWarning(int line, const std::string& message)
{
    logging::logEx(logging::kWarning, "(NetworkFlagsSource.cpp:" + std::to_string(line) +
                                          " vrq::NetworkFlagsSource::Impl::notifyHandlers): " + message);
}

// NetworkManager's PrimaryConnectionType, or "" when the system bus or
// NetworkManager does not answer.
std::string readPrimaryConnectionType(GDBusConnection* bus)
{
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager", "org.freedesktop.DBus.Properties",
        "Get", g_variant_new("(ss)", "org.freedesktop.NetworkManager", "PrimaryConnectionType"),
        G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, kDBusTimeoutMs, nullptr, &error);
    if (!reply) {
        g_clear_error(&error);
        return {};
    }
    std::string type;
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    if (value && g_variant_classify(value) == G_VARIANT_CLASS_STRING)
        type = g_variant_get_string(value, nullptr);
    if (value)
        g_variant_unref(value);
    g_variant_unref(reply);
    return type;
}

} // namespace

struct NetworkFlagsSource::Impl {
    static gboolean setUpOnMainContext(gpointer data);
    static void onNetworkChanged(GNetworkMonitor* monitor, gboolean available, gpointer data);

    std::uint32_t currentFlags();
    std::uint32_t measuredFlags();
    std::string primaryConnectionType();
    void readConnectionTypeInBackground();
    std::string readConnectionType();
    GDBusConnection* systemBus();
    void announceIfChanged(std::uint32_t flags);
    void notifyHandlers();

    std::mutex m_mutex;
    GNetworkMonitor* m_monitor = nullptr; // guarded by m_mutex; set once, on the main context
    std::optional<std::uint32_t> m_injectedFlags;
    std::optional<std::string> m_injectedTechnology;
    std::uint32_t m_announcedFlags = 0;
    std::optional<std::string> m_connectionType; // the last one read; "" until then
    bool m_typeReadPending = false;              // a read is queued or running
    int m_linkGeneration = 0;                    // counts network changes, so that a read knows it is stale
    std::function<std::string()> m_typeReader;   // injected by tests; empty: NetworkManager
    SerialQueue m_typeReads{"vrq.network-type"}; // where the connection type is read
    bool m_triedSystemBus = false;
    GDBusConnection* m_systemBus = nullptr;
    std::map<int, ChangeHandler> m_handlers;
    int m_nextToken = 1;
};

// GIO's monitor reports changes on the context that was thread-default when it
// was created, and its signal handlers run there: set both up on the main context.
gboolean NetworkFlagsSource::Impl::setUpOnMainContext(gpointer data)
{
    auto* impl = static_cast<Impl*>(data);
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    g_signal_connect_data(monitor, "network-changed", reinterpret_cast<GCallback>(&Impl::onNetworkChanged), impl,
                          nullptr, static_cast<GConnectFlags>(0));
    {
        std::lock_guard lock(impl->m_mutex);
        impl->m_monitor = monitor;
    }
    const std::uint32_t flags = impl->currentFlags();
    std::lock_guard lock(impl->m_mutex);
    impl->m_announcedFlags = flags;
    return G_SOURCE_REMOVE;
}

void NetworkFlagsSource::Impl::onNetworkChanged(GNetworkMonitor*, gboolean, gpointer data)
{
    auto* impl = static_cast<Impl*>(data);
    {
        std::lock_guard lock(impl->m_mutex);
        ++impl->m_linkGeneration;
    }
    impl->readConnectionTypeInBackground();
    impl->announceIfChanged(impl->currentFlags());
}

std::uint32_t NetworkFlagsSource::Impl::currentFlags()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_injectedFlags)
            return *m_injectedFlags;
    }
    return measuredFlags();
}

std::uint32_t NetworkFlagsSource::Impl::measuredFlags()
{
    GNetworkMonitor* monitor = nullptr;
    {
        std::lock_guard lock(m_mutex);
        monitor = m_monitor;
    }
    // Until the main context has set the monitor up, assume a usable network
    // rather than hold a session back.
    if (!monitor)
        return kFlagsBeforeSetUp;
    const bool available = g_network_monitor_get_network_available(monitor);
    const auto connectivity = static_cast<Connectivity>(g_network_monitor_get_connectivity(monitor));
    return flagsFor(available, connectivity, available ? primaryConnectionType() : std::string());
}

// Never blocks: the last type read (the D-Bus call may take up to its
// time-out, too long for the main thread), and a read started when none was.
std::string NetworkFlagsSource::Impl::primaryConnectionType()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_connectionType)
            return *m_connectionType;
    }
    readConnectionTypeInBackground();
    return {};
}

// Reads the type on a thread of its own, again if the link changed meanwhile,
// then announces the flags it gives when they changed.
void NetworkFlagsSource::Impl::readConnectionTypeInBackground()
{
    {
        std::lock_guard lock(m_mutex);
        if (m_typeReadPending)
            return;
        m_typeReadPending = true;
    }
    m_typeReads.async([this] {
        for (;;) {
            int generation = 0;
            {
                std::lock_guard lock(m_mutex);
                generation = m_linkGeneration;
            }
            std::string type = readConnectionType();
            std::lock_guard lock(m_mutex);
            if (generation != m_linkGeneration)
                continue;
            m_connectionType = std::move(type);
            m_typeReadPending = false;
            break;
        }
        dispatchMainAsync([this] { announceIfChanged(currentFlags()); });
    });
}

std::string NetworkFlagsSource::Impl::readConnectionType()
{
    std::function<std::string()> reader;
    {
        std::lock_guard lock(m_mutex);
        reader = m_typeReader;
    }
    if (reader)
        return reader();
    GDBusConnection* bus = systemBus();
    return bus ? readPrimaryConnectionType(bus) : std::string();
}

// The system bus, tried once: where there is none, there will not be one later.
GDBusConnection* NetworkFlagsSource::Impl::systemBus()
{
    std::lock_guard lock(m_mutex);
    if (!m_triedSystemBus) {
        m_triedSystemBus = true;
        GError* error = nullptr;
        m_systemBus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        g_clear_error(&error);
    }
    return m_systemBus;
}

void NetworkFlagsSource::Impl::announceIfChanged(std::uint32_t flags)
{
    {
        std::lock_guard lock(m_mutex);
        if (flags == m_announcedFlags)
            return;
        m_announcedFlags = flags;
    }
    dispatchMainAsync([this] { notifyHandlers(); });
}

void NetworkFlagsSource::Impl::notifyHandlers()
{
    std::vector<int> tokens;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& entry : m_handlers)
            tokens.push_back(entry.first);
    }
    for (const int token : tokens) {
        ChangeHandler handler;
        {
            std::lock_guard lock(m_mutex);
            const auto it = m_handlers.find(token);
            if (it == m_handlers.end())
                continue;
            handler = it->second;
        }
        try {
            handler();
        } catch (const std::exception& exception) {
            logWarning(__LINE__, std::string("change handler threw: ") + exception.what());
        } catch (...) {
            logWarning(__LINE__, "change handler threw");
        }
    }
}

NetworkFlagsSource::NetworkFlagsSource()
    : m_impl(new Impl)
{
    g_main_context_invoke(nullptr, &Impl::setUpOnMainContext, m_impl);
}

NetworkFlagsSource& NetworkFlagsSource::shared()
{
    // Never destroyed: GIO's monitor and queued announcements refer to it.
    static NetworkFlagsSource* const instance = new NetworkFlagsSource;
    return *instance;
}

std::uint32_t NetworkFlagsSource::flagsFor(bool networkAvailable, Connectivity connectivity,
                                           std::string_view primaryConnectionType)
{
    if (!networkAvailable)
        return 0;
    std::uint32_t flags = kReachabilityFlagsReachable;
    switch (connectivity) {
    case Connectivity::Local:
        flags |= kReachabilityFlagsConnectionRequired;
        break;
    case Connectivity::Portal:
        flags |= kReachabilityFlagsConnectionRequired | kReachabilityFlagsInterventionRequired;
        break;
    case Connectivity::Limited:
        // A failed connectivity probe does not prove that the game service is
        // out of reach (it may be on the same network): keep the link usable.
    case Connectivity::Full:
        break;
    }
    for (const auto type : kWideAreaConnectionTypes)
        if (primaryConnectionType == type)
            flags |= kReachabilityFlagsIsWWAN;
    return flags;
}

std::uint32_t NetworkFlagsSource::currentFlags()
{
    return m_impl->currentFlags();
}

std::string NetworkFlagsSource::currentRadioAccessTechnology()
{
    std::lock_guard lock(m_impl->m_mutex);
    return m_impl->m_injectedTechnology.value_or(std::string());
}

int NetworkFlagsSource::addChangeHandler(ChangeHandler handler)
{
    std::lock_guard lock(m_impl->m_mutex);
    const int token = m_impl->m_nextToken++;
    m_impl->m_handlers.emplace(token, std::move(handler));
    return token;
}

void NetworkFlagsSource::removeChangeHandler(int token)
{
    std::lock_guard lock(m_impl->m_mutex);
    m_impl->m_handlers.erase(token);
}

void NetworkFlagsSource::injectFlags(std::optional<std::uint32_t> flags)
{
    {
        std::lock_guard lock(m_impl->m_mutex);
        m_impl->m_injectedFlags = flags;
    }
    m_impl->announceIfChanged(m_impl->currentFlags());
}

void NetworkFlagsSource::injectConnectionTypeReader(std::function<std::string()> reader)
{
    {
        std::lock_guard lock(m_impl->m_mutex);
        m_impl->m_typeReader = std::move(reader);
        ++m_impl->m_linkGeneration;
    }
    m_impl->readConnectionTypeInBackground();
}

void NetworkFlagsSource::injectRadioAccessTechnology(std::optional<std::string> technology)
{
    std::lock_guard lock(m_impl->m_mutex);
    m_impl->m_injectedTechnology = std::move(technology);
}

} // namespace vrq
