#include "vrq/platform/services/HttpTransport.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/services/LogBackend.h"

#include <curl/curl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace vrq {
namespace {

// Loopback never goes through a proxy named in the environment.
constexpr const char* kNoProxyHosts = "127.0.0.1,localhost,::1";
constexpr int kMaxRedirects = 5;
constexpr int kIdlePollMs = 1000;

// One request in flight on the worker thread.
struct Transfer {
    HttpRequest request;
    HttpTransport::Completion completion;
    CURL* easy = nullptr;
    curl_slist* headers = nullptr;
    std::string body;
    char errorText[CURL_ERROR_SIZE] = {};

    ~Transfer()
    {
        if (easy)
            curl_easy_cleanup(easy);
        curl_slist_free_all(headers);
    }
};

size_t appendBody(char* data, size_t size, size_t count, void* userData)
{
    static_cast<Transfer*>(userData)->body.append(data, size * count);
    return size * count;
}

void logCompletionFailure(int line, const std::string& message)
{
    logging::logEx(logging::kWarning, "(HttpTransport.cpp:" + std::to_string(line) +
                                          " vrq::HttpTransport::Impl::deliver): completion threw: " + message);
}

} // namespace

struct HttpTransport::Impl {
    Impl();

    void send(HttpRequest request, Completion completion);
    void stopForExit();

    // Worker thread.
    void run();
    void startTransfers();
    bool configure(Transfer& transfer);
    void collectFinished();
    void finish(std::unique_ptr<Transfer> transfer, CURLcode result);
    void abandonAll();
    void deliver(Completion completion, std::optional<HttpError> error, HttpResponse response);

    CURLM* m_multi = nullptr;
    std::atomic<int> m_pending{0};

    std::mutex m_mutex;
    std::vector<std::unique_ptr<Transfer>> m_incoming; // guarded by m_mutex
    std::thread m_worker;                               // started lazily, guarded by m_mutex
    std::atomic<pid_t> m_workerProcess{0};              // the process that started the worker
    bool m_stopping = false;                            // guarded by m_mutex

    // Owned by the worker thread.
    std::vector<std::unique_ptr<Transfer>> m_active;
};

HttpTransport::Impl::Impl()
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    m_multi = curl_multi_init();
}

void HttpTransport::Impl::send(HttpRequest request, Completion completion)
{
    auto transfer = std::make_unique<Transfer>();
    transfer->request = std::move(request);
    transfer->completion = std::move(completion);
    {
        std::lock_guard lock(m_mutex);
        // After the exit hook has run nothing is sent any more, and nothing is reported.
        if (m_stopping)
            return;
        m_pending.fetch_add(1);
        m_incoming.push_back(std::move(transfer));
        if (!m_worker.joinable()) {
            m_worker = std::thread([this] { run(); });
            m_workerProcess = ::getpid();
        }
    }
    curl_multi_wakeup(m_multi);
}

// Runs from an exit hook, before libcurl and OpenSSL release their global
// state, so that no transfer is still running when they do.
void HttpTransport::Impl::stopForExit()
{
    // A forked child that exits has no worker of its own to join, and the
    // mutex may have been copied locked: leave everything as it is.
    const pid_t owner = m_workerProcess.load();
    if (owner != 0 && owner != ::getpid())
        return;
    std::thread worker;
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        worker = std::move(m_worker);
    }
    if (!worker.joinable())
        return;
    curl_multi_wakeup(m_multi);
    worker.join();
}

void HttpTransport::Impl::run()
{
    for (;;) {
        {
            std::lock_guard lock(m_mutex);
            if (m_stopping)
                break;
        }
        startTransfers();
        int running = 0;
        curl_multi_perform(m_multi, &running);
        collectFinished();
        curl_multi_poll(m_multi, nullptr, 0, kIdlePollMs, nullptr);
    }
    abandonAll();
}

void HttpTransport::Impl::startTransfers()
{
    std::vector<std::unique_ptr<Transfer>> incoming;
    {
        std::lock_guard lock(m_mutex);
        incoming.swap(m_incoming);
    }
    for (auto& transfer : incoming) {
        if (!configure(*transfer)) {
            finish(std::move(transfer), CURLE_FAILED_INIT);
            continue;
        }
        const CURLMcode added = curl_multi_add_handle(m_multi, transfer->easy);
        if (added != CURLM_OK) {
            finish(std::move(transfer), CURLE_FAILED_INIT);
            continue;
        }
        m_active.push_back(std::move(transfer));
    }
}

bool HttpTransport::Impl::configure(Transfer& transfer)
{
    transfer.easy = curl_easy_init();
    if (!transfer.easy)
        return false;
    CURL* easy = transfer.easy;
    const HttpRequest& request = transfer.request;

    bool ok = curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str()) == CURLE_OK;
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.errorText);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_NOPROXY, kNoProxyHosts);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, static_cast<long>(kMaxRedirects));
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");

    if (request.method == "GET") {
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "HEAD") {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else {
        if (request.method != "POST")
            curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
        // The request outlives the transfer's handle, so curl may read the body in place.
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    }

    // Without this, curl waits for "100 Continue" before sending larger bodies.
    bool hasExpect = false;
    for (const auto& [name, value] : request.headers) {
        hasExpect = hasExpect || curl_strequal(name.c_str(), "Expect");
        // "Name;" is curl's way to send a header with an empty value.
        const std::string line = value.empty() ? name + ";" : name + ": " + value;
        transfer.headers = curl_slist_append(transfer.headers, line.c_str());
    }
    if (!hasExpect)
        transfer.headers = curl_slist_append(transfer.headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.headers);
    return ok;
}

void HttpTransport::Impl::collectFinished()
{
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(m_multi, &queued)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        CURL* easy = message->easy_handle;
        const CURLcode result = message->data.result;
        curl_multi_remove_handle(m_multi, easy);
        for (auto it = m_active.begin(); it != m_active.end(); ++it) {
            if ((*it)->easy != easy)
                continue;
            std::unique_ptr<Transfer> transfer = std::move(*it);
            m_active.erase(it);
            finish(std::move(transfer), result);
            break;
        }
    }
}

void HttpTransport::Impl::finish(std::unique_ptr<Transfer> transfer, CURLcode result)
{
    std::optional<HttpError> error;
    HttpResponse response;
    if (result == CURLE_OK) {
        curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &response.status);
        response.body = std::move(transfer->body);
    } else {
        std::string text = transfer->errorText;
        if (text.empty())
            text = curl_easy_strerror(result);
        error = HttpError{kErrorDomain, static_cast<int>(result), std::move(text)};
    }
    deliver(std::move(transfer->completion), std::move(error), std::move(response));
}

void HttpTransport::Impl::deliver(Completion completion, std::optional<HttpError> error, HttpResponse response)
{
    dispatchMainAsync([this, completion = std::move(completion), error = std::move(error),
                       response = std::move(response)]() mutable {
        if (completion) {
            try {
                completion(std::move(error), std::move(response));
            } catch (const std::exception& exception) {
                logCompletionFailure(__LINE__, exception.what());
            } catch (...) {
                logCompletionFailure(__LINE__, "unknown exception");
            }
        }
        // Counted down only after the completion ran, so that a request it
        // sends in turn keeps the count above zero.
        m_pending.fetch_sub(1);
    });
}

// At exit: transfers still running are dropped without a completion.
void HttpTransport::Impl::abandonAll()
{
    for (auto& transfer : m_active)
        curl_multi_remove_handle(m_multi, transfer->easy);
    m_active.clear();
    std::lock_guard lock(m_mutex);
    m_incoming.clear();
}

HttpTransport::HttpTransport()
    : m_impl(new Impl)
{
}

// The shared instance is never destroyed; an exit hook stops its worker instead.
HttpTransport::~HttpTransport()
{
    m_impl->stopForExit();
    curl_multi_cleanup(m_impl->m_multi);
    delete m_impl;
}

HttpTransport& HttpTransport::shared()
{
    static HttpTransport* const instance = [] {
        auto* transport = new HttpTransport;
        // Registered after curl_global_init, so it runs before the TLS library's own exit cleanup.
        std::atexit([] { HttpTransport::shared().m_impl->stopForExit(); });
        return transport;
    }();
    return *instance;
}

void HttpTransport::send(HttpRequest request, Completion completion)
{
    m_impl->send(std::move(request), std::move(completion));
}

int HttpTransport::pendingCount() const
{
    return m_impl->m_pending.load();
}

} // namespace vrq
