#include "libcommon/src/http_client.h"

#include "libcommon/src/http_transfer.h"
#include "libcommon/src/kept_connections.h"
#include "libcommon/src/resolver.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <optional>
#include <set>
#include <unistd.h>
#include <vector>

namespace network {

namespace {

constexpr std::int64_t keptTime = 5'000'000;
constexpr long keptConnections = 4;
constexpr unsigned long answerable =
    CURLAUTH_BASIC | CURLAUTH_DIGEST; // never a scheme that asks other servers

class HttpClient {
public:
    explicit HttpClient(HttpClient* inherited);
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    bool belongsToThisProcess() const { return owner_ == getpid(); }
    HttpOutcome run(const HttpRequest& request, NetworkOperation& operation);

private:
    struct KnownName {
        std::string host;
        std::string addresses; // as in a CURLOPT_RESOLVE entry
        std::int64_t until = 0;
    };

    std::optional<HttpOutcome> resolveHost(const HttpRequest& request, NetworkOperation& operation,
                                           std::string& entry);
    CURLcode perform(Transfer& transfer, const HttpRequest& request, NetworkOperation& operation);
    std::optional<CURLcode> step(Transfer& transfer, const HttpRequest& request, NetworkOperation& operation);
    void act(curl_socket_t socket, int events);
    void actOn(const std::vector<pollfd>& polled);
    void actOnTimer();
    std::optional<CURLcode> finished();

    static int onSocket(CURL* easy, curl_socket_t socket, int what, void* self, void* unused);
    static int onTimer(CURLM* multi, long milliseconds, void* self);

    const pid_t owner_ = getpid();
    [[maybe_unused]] HttpClient* const inherited_; // the parent's: unused, kept so that no leak is reported
    CURLM* const multi_;
    CURL* const easy_;
    KeptConnections kept_{keptTime};
    std::map<curl_socket_t, short> watched_; // the sockets and events that libcurl waits for
    std::int64_t timerAt_ = INT64_MAX;       // when libcurl wants to be called
    KnownName knownName_; // the last name looked up, for as long as its connections are kept
};

// ---- Process-wide state ----
// Made at the first request, and again at the first one of a forked child; never destroyed, because its
// closing thread may run while the process exits. Written and read by the one thread that downloads.
HttpClient* client = nullptr;

HttpClient& ownClient() {
    if (client == nullptr || !client->belongsToThisProcess())
        client = new HttpClient(client);
    return *client;
}

std::set<int> openDescriptors() {
    std::set<int> descriptors;
    DIR* directory = opendir("/proc/self/fd");
    if (directory == nullptr)
        return descriptors;
    while (const dirent* entry = readdir(directory)) // NOLINT(concurrency-mt-unsafe)
        descriptors.insert(std::atoi(entry->d_name));
    descriptors.erase(dirfd(directory)); // it is closed right after this
    closedir(directory);
    return descriptors;
}

// libcurl's multi handle opens descriptors of its own that a player would inherit.
CURLM* makeMulti() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::set<int> before = openDescriptors();
    CURLM* multi = curl_multi_init();
    for (const int fd : openDescriptors())
        if (!before.contains(fd))
            fcntl(fd, F_SETFD, FD_CLOEXEC);
    return multi;
}

HttpOutcome failure(CURLcode code, std::string reason) {
    HttpOutcome outcome;
    outcome.transport = code;
    outcome.reason = std::move(reason);
    return outcome;
}

bool hasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
}

std::string addressList(const std::vector<Endpoint>& endpoints) {
    std::string list;
    for (const Endpoint& endpoint : endpoints) {
        const std::string address = addressText(endpoint);
        const bool isIPv6 = address.find(':') != std::string::npos;
        list += (list.empty() ? "" : ",") + (isIPv6 ? "[" + address + "]" : address);
    }
    return list;
}

HttpClient::HttpClient(HttpClient* inherited)
    : inherited_(inherited), multi_(makeMulti()), easy_(curl_easy_init()) {
    if (multi_ == nullptr)
        return;
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &HttpClient::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &HttpClient::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, keptConnections);
}

int HttpClient::onSocket(CURL* /*easy*/, curl_socket_t socket, int what, void* self, void* /*unused*/) {
    auto& watched = static_cast<HttpClient*>(self)->watched_;
    if (what == CURL_POLL_REMOVE)
        watched.erase(socket);
    else
        watched[socket] = static_cast<short>(((what & CURL_POLL_IN) != 0 ? POLLIN : 0) |
                                             ((what & CURL_POLL_OUT) != 0 ? POLLOUT : 0));
    return 0;
}

int HttpClient::onTimer(CURLM* /*multi*/, long milliseconds, void* self) {
    static_cast<HttpClient*>(self)->timerAt_ =
        milliseconds < 0 ? INT64_MAX : gettimeusec() + milliseconds * std::int64_t{1000};
    return 0;
}

void HttpClient::act(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
}

void HttpClient::actOn(const std::vector<pollfd>& polled) {
    for (const pollfd& entry : polled) {
        if (entry.revents == 0 || !watched_.contains(entry.fd))
            continue; // an earlier action may have closed it
        const short events = entry.revents;
        act(entry.fd, ((events & (POLLIN | POLLHUP)) != 0 ? CURL_CSELECT_IN : 0) |
                          ((events & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                          ((events & (POLLERR | POLLNVAL)) != 0 ? CURL_CSELECT_ERR : 0));
    }
}

void HttpClient::actOnTimer() {
    timerAt_ = INT64_MAX;
    act(CURL_SOCKET_TIMEOUT, 0);
    if (timerAt_ != INT64_MAX)
        return;
    // libcurl does nothing when it is called a moment too early by its own clock, and does not ask again.
    long milliseconds = -1;
    curl_multi_timeout(multi_, &milliseconds);
    onTimer(multi_, milliseconds, this);
}

std::optional<CURLcode> HttpClient::finished() {
    int queued = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &queued))
        if (message->msg == CURLMSG_DONE)
            return message->data.result;
    return std::nullopt;
}

// Waits once and lets libcurl act on it. Returns the end of the transfer, if it ended.
std::optional<CURLcode> HttpClient::step(Transfer& transfer, const HttpRequest& request,
                                         NetworkOperation& operation) {
    std::vector<pollfd> polled;
    for (const auto& [socket, events] : watched_)
        polled.push_back({.fd = socket, .events = events, .revents = 0});
    const std::int64_t connectLimit = transfer.isConnected() ? INT64_MAX : request.connectUntil;
    const std::int64_t limit = std::min(connectLimit, transfer.refusalLimit());
    switch (operation.wait(polled, std::min(timerAt_, limit))) {
    case WaitEnd::Ready:
        actOn(polled);
        break;
    case WaitEnd::TimeOver:
        break;
    case WaitEnd::Interrupted:
        return CURLE_ABORTED_BY_CALLBACK;
    case WaitEnd::Failed:
        return CURLE_RECV_ERROR;
    }
    const std::int64_t now = gettimeusec();
    if (now >= timerAt_)
        actOnTimer();
    if (const auto code = finished())
        return code;
    if (now >= transfer.refusalLimit()) {
        transfer.endRefusal();
        return CURLE_OPERATION_TIMEDOUT;
    }
    const bool isLate =
        now >= operation.deadline() || (!transfer.isConnected() && now >= request.connectUntil);
    return isLate ? std::optional(CURLE_OPERATION_TIMEDOUT) : std::nullopt;
}

CURLcode HttpClient::perform(Transfer& transfer, const HttpRequest& request, NetworkOperation& operation) {
    if (curl_multi_add_handle(multi_, easy_) != CURLM_OK)
        return CURLE_FAILED_INIT;
    actOnTimer();
    std::optional<CURLcode> code = finished();
    while (!code)
        code = step(transfer, request, operation);
    curl_multi_remove_handle(multi_, easy_); // closes the connection of a transfer that is not finished
    return *code;
}

// Fills in the CURLOPT_RESOLVE entry, or returns why there is none. A numeric host needs none.
std::optional<HttpOutcome> HttpClient::resolveHost(const HttpRequest& request, NetworkOperation& operation,
                                                   std::string& entry) {
    if (request.host != knownName_.host || gettimeusec() >= knownName_.until || operation.interrupted()) {
        knownName_ = {};
        const Resolution resolution = resolve(request.host, request.port, operation);
        if (resolution.endpoints.empty()) {
            HttpOutcome outcome = failure(resolution.error == EINTR       ? CURLE_ABORTED_BY_CALLBACK
                                          : resolution.error == ETIMEDOUT ? CURLE_OPERATION_TIMEDOUT
                                                                          : CURLE_COULDNT_RESOLVE_HOST,
                                          resolution.reason);
            outcome.systemError = resolution.error;
            return outcome;
        }
        if (resolution.numeric)
            return std::nullopt;
        knownName_ = {request.host, addressList(resolution.endpoints), gettimeusec() + keptTime};
    }
    // "+": the entry expires in libcurl's cache like any other answer.
    entry = "+" + request.host + ":" + std::to_string(request.port) + ":" + knownName_.addresses;
    return std::nullopt;
}

HttpOutcome HttpClient::run(const HttpRequest& request, NetworkOperation& operation) {
    if (multi_ == nullptr || easy_ == nullptr)
        return failure(CURLE_FAILED_INIT, "libcurl could not be set up");
    if (hasControlCharacter(request.target))
        return failure(CURLE_URL_MALFORMAT, "the path holds a control character");
    std::string resolved;
    if (auto unresolved = resolveHost(request, operation, resolved))
        return *std::move(unresolved);

    kept_.beginUse();
    Transfer transfer(request);
    const std::int64_t timeLeft = std::min(request.connectUntil, operation.deadline()) - gettimeusec();
    const auto connectTime = static_cast<long>(std::clamp<std::int64_t>(timeLeft / 1000, 1, LONG_MAX));
    CURLcode code =
        transfer.configure(easy_, resolved, request.withCredentials ? answerable : 0, connectTime, kept_);
    if (code == CURLE_OK)
        code = perform(transfer, request, operation);
    if (request.withCredentials && transfer.hasUnansweredChallenge() && !operation.interrupted()) {
        long offered = 0;
        curl_easy_getinfo(easy_, CURLINFO_HTTPAUTH_AVAIL, &offered);
        transfer.restart(easy_, (static_cast<unsigned long>(offered) & CURLAUTH_DIGEST) != 0
                                    ? CURLAUTH_DIGEST
                                    : CURLAUTH_BASIC);
        code = perform(transfer, request, operation);
    }
    HttpOutcome outcome = transfer.outcome(easy_, code);
    curl_easy_reset(easy_); // it points into the transfer
    kept_.endUse();
    return outcome;
}

} // namespace

HttpOutcome runRequest(const HttpRequest& request, NetworkOperation& operation) {
    HttpOutcome outcome = ownClient().run(request, operation);
    if (outcome.transport == CURLE_PEER_FAILED_VERIFICATION || outcome.transport == CURLE_SSL_CACERT_BADFILE)
        logmsg(3, "The TLS certificate of %s was refused: %s", request.host.c_str(), outcome.reason.c_str());
    return outcome;
}

} // namespace network
