#pragma once

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <string>

// The reference server's control API ("/control/*") over HTTP, for a server
// in another process. Each call is one short blocking request on loopback.
class ServerControl {
public:
    explicit ServerControl(std::string origin) : m_origin(std::move(origin)) {}

    // A fault control; its HTTP status, 0 when there was no answer.
    int post(const std::string& path) const
    {
        auto client = makeClient();
        const auto response = client.Post(path);
        return response ? response->status : 0;
    }

    // A state read; null when there was no answer or it was not JSON.
    nlohmann::json get(const std::string& path) const
    {
        auto client = makeClient();
        const auto response = client.Get(path);
        if (!response || response->status != 200)
            return nullptr;
        auto state = nlohmann::json::parse(response->body, nullptr, false);
        return state.is_discarded() ? nlohmann::json() : state;
    }

private:
    httplib::Client makeClient() const
    {
        httplib::Client client(m_origin);
        client.set_connection_timeout(2);
        client.set_read_timeout(2);
        return client;
    }

    const std::string m_origin;
};
