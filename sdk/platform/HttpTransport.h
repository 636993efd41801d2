#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "utils/VRQError.h"

namespace vrq {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::map<std::string, std::string> headers;
    std::string body;
    std::chrono::milliseconds timeout{10000};
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
    using Completion = std::function<void(std::optional<VRQError> error, HttpResponse response)>;

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
