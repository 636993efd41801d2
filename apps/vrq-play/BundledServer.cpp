#include "BundledServer.h"

#include "GamepadState.h"
#include "ReferenceServer.h"

#include "vrq/utils/VRQHttpHelper.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// Whether a TCP listener could bind host:port now. The kit reconnects to a
// fixed port, so a second server on the same address cannot work.
bool portIsFree(const std::string& host, int port, std::string* why)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        *why = "not an IPv4 address";
        return false;
    }
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        *why = std::strerror(errno);
        return false;
    }
    const int yes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes); // as the server binds it
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (!bound)
        *why = std::strerror(errno);
    ::close(fd);
    return bound;
}

// Adds one to the count of a message's "type" ("?" when it has none).
void countType(nlohmann::json& counts, const nlohmann::json& message)
{
    const auto type = message.is_object() ? message.find("type") : message.end();
    const std::string name = type != message.end() && type->is_string() ? type->get<std::string>() : "?";
    counts[name] = counts.value(name, 0) + 1;
}

// Counts the messages by type, and the instructions inside the key sequences
// by theirs into `sequences`; each message is parsed once.
void countTypes(const std::vector<vrqserver::ChannelMessage>& messages, bool enveloped, nlohmann::json& counts,
                nlohmann::json& sequences)
{
    for (const auto& message : messages) {
        const auto object = nlohmann::json::parse(message.bytes, nullptr, false);
        if (!object.is_object())
            continue;
        const auto& body = enveloped ? object.value("data", nlohmann::json::object()) : object;
        countType(counts, body);
        if (!body.is_object() || body.value("type", nlohmann::json()) != "key_seq")
            continue;
        const auto keys = body.find("keys");
        if (keys == body.end() || !keys->is_array())
            continue;
        for (const auto& key : *keys) {
            bool repaired = false;
            countType(sequences, key.is_string() ? vrqserver::GamepadState::parseInstruction(key, repaired) : nullptr);
        }
    }
}

} // namespace

std::unique_ptr<BundledServer> BundledServer::start(const std::string& host, std::string* error)
{
    vrqserver::ReferenceServer::Options options;
    options.host = host;
    options.reconnectPort = VRQHttpHelper::kReconnectPort;
    std::string why;
    if (!portIsFree(host, options.reconnectPort, &why)) {
        *error = "the reconnect port " + host + ":" + std::to_string(options.reconnectPort) + " is not available (" + why
                 + "); is another vrq-play or vrq-game-server running on this address? Stop it, or pass --host 127.0.0.N";
        return nullptr;
    }
    auto server = vrqserver::ReferenceServer::start(options);
    if (!server) {
        *error = "the bundled reference server could not start on " + host;
        return nullptr;
    }
    return std::unique_ptr<BundledServer>(new BundledServer(std::move(server)));
}

BundledServer::BundledServer(std::unique_ptr<vrqserver::ReferenceServer> server)
    : m_server(std::move(server))
{
}

BundledServer::~BundledServer()
{
    stop();
}

std::string BundledServer::origin() const
{
    return m_server->origin();
}

std::string BundledServer::metricKey() const
{
    return m_server->ingest().key();
}

nlohmann::json BundledServer::ingestSummary() const
{
    auto& ingest = m_server->ingest();
    const std::size_t bulks = ingest.bulks().size();
    const std::size_t rejected = ingest.rejectedCount();
    return {{"metric_records", ingest.recordCount(VRQHttpHelper::kReportBulkProxy)},
            {"log_records", ingest.recordCount(VRQHttpHelper::kLogBulkProxy)},
            {"bulks", bulks},
            {"rejected_bulks", rejected},
            {"all_signed", bulks > 0 && rejected == 0}};
}

nlohmann::json BundledServer::inputSummary() const
{
    nlohmann::json km = nlohmann::json::object();
    nlohmann::json ack = nlohmann::json::object();
    nlohmann::json sequences = nlohmann::json::object();
    for (const auto& session : m_server->gameServer().sessions()) {
        const auto& log = session->messageLog();
        countTypes(log.messagesOn("km"), false, km, sequences);
        countTypes(log.messagesOn("ack"), true, ack, sequences);
    }
    return {{"km", km}, {"ack", ack}, {"key_seq", sequences}};
}

void BundledServer::stop()
{
    if (m_server)
        m_server->stop();
}
