#pragma once

// A ReferenceServer on its own loopback host and a kit-like offerer that got
// its session through the back end's "POST /session", with helpers to read
// what the game sends on each channel, in order.

#include "KitOfferer.h"

#include "GameBehaviour.h"
#include "ReferenceServer.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vrqtest {

// The remote session object inside a remote session text; null when it is not one.
inline nlohmann::json decodedRemoteSession(const std::string& text)
{
    const auto bytes = vrq::base64Decode(text);
    return bytes ? nlohmann::json::parse(*bytes, nullptr, false) : nlohmann::json();
}

inline vrqserver::ReferenceServer::Options referenceOptions(const std::string& host)
{
    vrqserver::ReferenceServer::Options options;
    options.host = host;
    options.metricKey = "served-metric-key";
    options.game.video.width = 320;
    options.game.video.height = 240;
    options.game.video.bitrateKbps = 500;
    return options;
}

// Posts a client session to the back end; the answer's status and body, or status 0.
inline std::pair<int, std::string> postSession(const std::string& origin, const std::string& clientSession)
{
    httplib::Client http(origin);
    http.set_read_timeout(30, 0);
    const auto response = http.Post("/session", clientSession, "text/plain");
    return response ? std::make_pair(response->status, response->body) : std::make_pair(0, std::string());
}

class ServedClient {
public:
    explicit ServedClient(std::vector<std::string> extraLabels = {})
        : m_client(std::move(extraLabels))
    {
    }

    // Starts the server and plays a session from it; an explanation when a step failed.
    std::optional<std::string> start(vrqserver::ReferenceServer::Options options)
    {
        if (!startServer(std::move(options)))
            return "the reference server did not start";
        return connect();
    }

    bool startServer(vrqserver::ReferenceServer::Options options)
    {
        m_server = vrqserver::ReferenceServer::start(std::move(options));
        return m_server != nullptr;
    }

    std::optional<std::string> connect()
    {
        if (auto failed = m_client.createOffer())
            return failed;
        const auto [status, body] = postSession(m_server->origin(), m_client.clientSession());
        if (status != 200)
            return "POST /session answered " + std::to_string(status) + ": " + body;
        m_remote = decodedRemoteSession(body);
        if (!m_remote.is_object() || !m_remote["sdp"].is_string())
            return "no answer in " + body;
        if (auto failed = m_client.applyAnswer(m_remote["sdp"].get<std::string>()))
            return failed;
        if (!rtc::waitUntil([&] { return m_client.allChannelsOpen(); }))
            return "the channels did not open";
        return std::nullopt;
    }

    vrqserver::ReferenceServer& server() { return *m_server; }
    KitOfferer& client() { return m_client; }
    const nlohmann::json& remote() const { return m_remote; }
    std::shared_ptr<vrqserver::GameSession> session() { return m_server->gameServer().latestSession(); }
    std::shared_ptr<vrqserver::GameBehaviour> behaviour() { return m_server->behaviourOf(*session()); }

    // The next message the game sent on the label, parsed; null when none came in time.
    nlohmann::json next(const std::string& label, std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        const auto buffer = nextBuffer(label, timeout);
        return buffer ? nlohmann::json::parse(buffer->data, nullptr, false) : nlohmann::json();
    }

    std::optional<vrq::rtc::DataBuffer> nextBuffer(const std::string& label, std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        std::size_t& read = m_read[label];
        if (!rtc::waitUntil([&] { return m_client.received(label).size() > read; }, timeout))
            return std::nullopt;
        return m_client.received(label)[read++];
    }

    // Messages the game sent on the label that next() has not returned yet.
    std::size_t unread(const std::string& label) { return m_client.received(label).size() - m_read[label]; }

    // Sends {"seq": seq, "data": data} on "ack" and returns the next reply on "ack".
    nlohmann::json ack(int seq, const nlohmann::json& data)
    {
        if (!m_client.send("ack", nlohmann::json{{"seq", seq}, {"data", data}}.dump()))
            return nullptr;
        return next("ack");
    }

    // A back-end POST; status 0 when there was no answer.
    std::pair<int, std::string> post(const std::string& path, const std::string& body = "")
    {
        httplib::Client http(m_server->origin());
        http.set_read_timeout(30, 0);
        const auto response = http.Post(path.c_str(), body, "application/json");
        return response ? std::make_pair(response->status, response->body) : std::make_pair(0, std::string());
    }

    ~ServedClient()
    {
        m_client.close();
        if (m_server)
            m_server->stop();
    }

private:
    KitOfferer m_client;
    std::unique_ptr<vrqserver::ReferenceServer> m_server;
    nlohmann::json m_remote;
    std::map<std::string, std::size_t> m_read;
};

} // namespace vrqtest
