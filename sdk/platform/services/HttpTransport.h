#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace vrq {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::map<std::string, std::string> headers;
    std::string body;
    std::chrono::milliseconds timeout{10000};
};

// A transport failure: its domain (HttpTransport::kErrorDomain), libcurl's
// result code and libcurl's description of it.
struct HttpError {
    std::string domain;
    int code = 0;
    std::string description;

    std::string toString() const { return domain + " " + std::to_string(code) + (description.empty() ? "" : ": " + description); }
};

struct HttpResponse {
    long status = 0;
    std::string body;
};

// libcurl on one worker thread. Every completion is posted to the main thread.
// https peers are verified against the system's certificate store.
class HttpTransport {
public:
    // Error domain of transport failures; the code is libcurl's result code.
    static constexpr const char* kErrorDomain = "VRQHttpTransport";
    using Completion = std::function<void(std::optional<HttpError> error, HttpResponse response)>;

    static HttpTransport& shared();

    // An answer of any HTTP status counts as success; only transport failures
    // (unreachable, time-out, malformed answer) give an error.
    void send(HttpRequest request, Completion completion);

    // Number of requests started and not yet completed (for orderly shutdown).
    int pendingCount() const;

    struct Impl;
    ~HttpTransport();

private:
    HttpTransport();
    Impl* m_impl;
};

} // namespace vrq
