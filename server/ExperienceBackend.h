#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace httplib {
class Server;
}

namespace vrqserver {

class SessionBackend;

// Experience codes: a host registers its client session under a code with
// "POST /ExperienceOffer" {"experience_code": CODE, "client_session": TEXT}
// (answered {"Code":0}); "POST /CreateExperienceSession" {"experience_code":
// CODE} then answers that offer once, the code being consumed, with
// {"Code":0,"ServerSession": remote session text}. Every answer is HTTP 200;
// "Code" is 400 for a malformed body, 404 for an unknown code, 403 while
// answers are refused and 503 when no answer came in time. Thread-safe; the
// session back end must outlive the installed routes.
class ExperienceBackend {
public:
    // Registered offers kept at most; registering another drops the oldest.
    static constexpr std::size_t kMaxOffers = 64;

    explicit ExperienceBackend(SessionBackend& sessions);
    void install(httplib::Server& server);

    // {"Code": ...} for the bodies of the two requests.
    std::string registerOffer(const std::string& body);
    std::string createSession(const std::string& body);

    std::size_t pendingOffers() const;

private:
    std::optional<std::string> takeOffer(const std::string& code);

    SessionBackend& m_sessions;
    mutable std::mutex m_mutex;
    std::deque<std::pair<std::string, std::string>> m_offers; // code, client session; guarded by m_mutex
};

} // namespace vrqserver
