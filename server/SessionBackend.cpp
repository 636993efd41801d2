#include "SessionBackend.h"

#include "GameFaults.h"
#include "GameServer.h"

#include <httplib.h>

#include <chrono>
#include <future>

namespace vrqserver {

SessionBackend::SessionBackend(GameServer& gameServer, RemoteSessionFields fields,
                               std::chrono::milliseconds answerTimeout, std::shared_ptr<const GameFaults> faults)
    : m_gameServer(gameServer)
    , m_fields(std::move(fields))
    , m_answerTimeout(answerTimeout)
    , m_faults(std::move(faults))
{
}

void SessionBackend::install(httplib::Server& server)
{
    server.Post("/session", [this](const httplib::Request& request, httplib::Response& response) {
        int status = 200;
        const auto remote = remoteSessionFor(request.body, &status);
        response.status = status;
        if (remote)
            response.set_content(*remote, "text/plain");
        else
            response.set_content(status == 400 ? "unreadable client session\n" : "no answer\n", "text/plain");
    });
}

std::optional<std::string> SessionBackend::remoteSessionFor(const std::string& clientSession, int* status)
{
    const auto client = decodeClientSession(clientSession);
    if (!client) {
        *status = 400;
        return std::nullopt;
    }
    if (!admitAnswer()) {
        *status = 200;
        return encodeRemoteSession(refusal());
    }
    const auto remote = answerOffer(client->sdp, {}, status);
    return remote ? std::optional<std::string>(encodeRemoteSession(*remote)) : std::nullopt;
}

bool SessionBackend::admitAnswer() const
{
    return !m_faults || m_faults->admitAnswer();
}

nlohmann::json SessionBackend::refusal()
{
    return {{"code", 403}};
}

std::optional<nlohmann::json> SessionBackend::answerOffer(const std::string& offerSdp, const std::string& token, int* status)
{
    auto answer = std::make_shared<std::promise<std::optional<std::string>>>();
    auto answered = answer->get_future();
    auto session = m_gameServer.acceptOffer(
        offerSdp, [answer](std::optional<std::string> sdp, std::optional<vrq::rtc::Error>) { answer->set_value(std::move(sdp)); },
        token);
    if (answered.wait_for(m_answerTimeout) != std::future_status::ready) {
        if (session)
            session->close(); // completes the answer with an error
        *status = 503;
        return std::nullopt;
    }
    const auto sdp = answered.get();
    if (!sdp) {
        *status = 503;
        return std::nullopt;
    }
    *status = 200;
    ++m_served;
    return makeRemoteSession(*sdp, m_fields, nextRequestId());
}

std::string SessionBackend::nextRequestId()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return "vrq-" + std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) + "-" +
           std::to_string(++m_requests);
}

} // namespace vrqserver
