#include "libcommon/src/http_transfer.h"

#include <libcommon/clock.h>
#include <libcommon/params.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

namespace network {

namespace {

constexpr std::size_t maximumHeaders = 64 * 1024;
constexpr std::size_t maximumDropped = 1024 * 1024;   // of a body that is not asked for
constexpr std::size_t maximumRefusalBody = 16 * 1024; // read so that the connection can be used again
constexpr std::int64_t refusalBodyTime = 500'000;     // likewise, microseconds
constexpr long keptSeconds = 5;
constexpr long systemAuthoritiesTime = 60; // seconds

// Three digits after "HTTP/1.1 "; 0 when there are none.
int statusOf(std::string_view line) {
    const std::size_t blank = line.find(' ');
    const std::string_view code = blank == line.npos ? "" : line.substr(blank + 1, 3);
    int status = 0;
    for (const char digit : code)
        status = digit >= '0' && digit <= '9' && status >= 0 ? status * 10 + (digit - '0') : -1;
    return code.size() == 3 ? std::max(status, 0) : 0;
}

} // namespace

CURLcode Transfer::configure(CURL* easy, const std::string& resolved, unsigned long authentication,
                             long connectTime, KeptConnections& sockets) {
    easy_ = easy;
    set(easy, CURLOPT_NOSIGNAL, 1L);
    set(easy, CURLOPT_QUICK_EXIT, 1L);
    set(easy, CURLOPT_ERRORBUFFER, error_.data());
    set(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    set(easy, CURLOPT_PROXY, ""); // the environment's proxies are not meant for encoders
    set(easy, CURLOPT_FOLLOWLOCATION, 0L);
    set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(easy, CURLOPT_USERAGENT, "decoder");
    set(easy, CURLOPT_MAXAGE_CONN, keptSeconds);
    set(easy, CURLOPT_CONNECTTIMEOUT_MS, connectTime);
    set(easy, CURLOPT_OPENSOCKETFUNCTION, &KeptConnections::open);
    set(easy, CURLOPT_OPENSOCKETDATA, &sockets);
    set(easy, CURLOPT_CLOSESOCKETFUNCTION, &KeptConnections::close);
    set(easy, CURLOPT_CLOSESOCKETDATA, &sockets);
    if (!resolved.empty()) {
        resolved_.reset(curl_slist_append(nullptr, resolved.c_str()));
        set(easy, CURLOPT_RESOLVE, resolved_.get());
    }
    if (authentication != 0) {
        set(easy, CURLOPT_HTTPAUTH, authentication);
        set(easy, CURLOPT_USERNAME, request_.user.c_str());
        set(easy, CURLOPT_PASSWORD, request_.password.c_str());
    }
    setUrl(easy);
    setTls(easy);
    setCallbacks(easy);
    return setupError_;
}

// The request line has the target unchanged. libcurl's URL gets it too, although the request target overrides it there:
// a Digest answer names the URL's path and query, which must be those of the request.
void Transfer::setUrl(CURL* easy) {
    const std::string target = request_.target.empty() ? "/" : request_.target;
    const std::string path = target.front() == '/' ? target : "/" + target;
    const bool isIPv6 = request_.host.find(':') != std::string::npos;
    const std::size_t percent = request_.host.find('%');
    std::string host = request_.host;
    if (isIPv6 && percent != std::string::npos)
        host.insert(percent + 1, "25"); // a zone's "%" is escaped in a URL
    const std::string base = std::string(request_.tls ? "https" : "http") + "://" + (isIPv6 ? "[" : "") +
                             host + (isIPv6 ? "]" : "") + ":" + std::to_string(request_.port);
    const bool hasFragment = path.find('#') != std::string::npos;
    url_.reset(curl_url());
    CURLUcode error = curl_url_set(url_.get(), CURLUPART_URL, (base + (hasFragment ? "/" : path)).c_str(),
                                   CURLU_ALLOW_SPACE | CURLU_PATH_AS_IS);
    if (error == CURLUE_OK && hasFragment) { // in a URL it would end there; in its parts it is a character
        const std::size_t question = path.find('?');
        error = curl_url_set(url_.get(), CURLUPART_PATH, path.substr(0, question).c_str(), 0);
        if (error == CURLUE_OK && question != std::string::npos)
            error = curl_url_set(url_.get(), CURLUPART_QUERY, path.substr(question + 1).c_str(), 0);
    }
    if (error != CURLUE_OK && setupError_ == CURLE_OK)
        setupError_ = CURLE_URL_MALFORMAT;
    set(easy, CURLOPT_CURLU, url_.get());
    set(easy, CURLOPT_PATH_AS_IS, 1L);
    set(easy, CURLOPT_REQUEST_TARGET, target.c_str());
}

void Transfer::setTls(CURL* easy) {
    if (!request_.tls)
        return;
    const ParamWrapper parameters(0, false);
    const bool verified = parameters["Network.TLS.Verify"] != "no";
    set(easy, CURLOPT_SSL_VERIFYPEER, verified ? 1L : 0L);
    set(easy, CURLOPT_SSL_VERIFYHOST, verified ? 2L : 0L);
    // One file of authorities, ours or the system's: beside a directory of them libcurl would trust both, and read the
    // file again for every connection. Its cache of a file does not notice a change of the file.
    set(easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    set(easy, CURLOPT_CA_CACHE_TIMEOUT, systemAuthoritiesTime);
    const std::string authorities = parameters["Network.TLS.CAFile"].toString();
    if (!verified || authorities.empty())
        return;
    set(easy, CURLOPT_CAINFO, authorities.c_str());
    set(easy, CURLOPT_CA_CACHE_TIMEOUT, 0L);
}

void Transfer::setCallbacks(CURL* easy) {
    set(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    set(easy, CURLOPT_HEADERDATA, this);
    set(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    set(easy, CURLOPT_WRITEDATA, this);
    set(easy, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    set(easy, CURLOPT_XFERINFODATA, this);
    set(easy, CURLOPT_NOPROGRESS, 0L);
    set(easy, CURLOPT_PREREQFUNCTION, &Transfer::onRequest);
    set(easy, CURLOPT_PREREQDATA, this);
}

void Transfer::restart(CURL* easy, unsigned long authentication) {
    set(easy, CURLOPT_HTTPAUTH, authentication);
    connected_ = false;
    headerComplete_ = false;
    answeredChallenge_ = true;
    status_ = 0;
    headerBytes_ = 0;
    refusedAt_ = 0;
    dropped_ = 0;
    earlyEnd_ = EarlyEnd::None;
}

std::int64_t Transfer::refusalLimit() const {
    return refusedAt_ == 0 ? INT64_MAX : refusedAt_ + refusalBodyTime;
}

// Called before every request of the transfer, the one that answers a challenge included.
int Transfer::onRequest(void* self, char* /*remote*/, char* /*local*/, int /*remotePort*/,
                        int /*localPort*/) {
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.connected_ = true;
    transfer.awaitsStatusLine_ = true;
    if (transfer.headerComplete_ && transfer.status_ == 401)
        transfer.answeredChallenge_ = true;
    transfer.headerComplete_ = false;
    transfer.refusedAt_ = 0;
    return CURL_PREREQFUNC_OK;
}

std::size_t Transfer::onHeader(char* line, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    return transfer.takeHeaderLine({line, size * count}) ? size * count : 0;
}

bool Transfer::takeHeaderLine(std::string_view line) {
    headerBytes_ += line.size();
    if (headerBytes_ > maximumHeaders) {
        earlyEnd_ = EarlyEnd::HeaderTooLong;
        return false;
    }
    if (awaitsStatusLine_ && line.starts_with("HTTP/")) {
        awaitsStatusLine_ = false;
        status_ = statusOf(line);
    } else if (!headerComplete_ && (line == "\r\n" || line == "\n")) {
        const bool isFinal = status_ >= 200; // after "100 Continue" another header follows
        headerComplete_ = isFinal;
        awaitsStatusLine_ = !isFinal;
        if (isRefusal())
            refusedAt_ = gettimeusec();
    }
    return true;
}

std::size_t Transfer::onBody(char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    return transfer.takeBody(data, size * count) ? size * count : 0;
}

bool Transfer::takeBody(const char* data, std::size_t length) {
    if (isRefusal() || request_.buffer == nullptr) {
        dropped_ += length;
        if (isRefusal() && dropped_ > maximumRefusalBody)
            earlyEnd_ = EarlyEnd::RefusalKnown;
        else if (!isRefusal() && dropped_ >= maximumDropped)
            earlyEnd_ = EarlyEnd::BufferFull;
        return earlyEnd_ == EarlyEnd::None;
    }
    const auto room = static_cast<std::size_t>(request_.size - bytes_);
    const std::size_t taken = std::min(room, length);
    std::memcpy(request_.buffer + bytes_, data, taken);
    bytes_ += static_cast<int>(taken);
    curl_off_t announced = -1;
    curl_easy_getinfo(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    // A body that fits exactly ends by itself, and its connection can be used again.
    if (bytes_ == request_.size && announced != request_.size)
        earlyEnd_ = EarlyEnd::BufferFull;
    return earlyEnd_ == EarlyEnd::None;
}

// The body of a 401 that libcurl is going to answer never reaches onBody: libcurl ignores it, even an endless one.
int Transfer::onProgress(void* self, curl_off_t /*total*/, curl_off_t now, curl_off_t /*up*/,
                         curl_off_t /*upNow*/) {
    auto& transfer = *static_cast<Transfer*>(self);
    if (transfer.refusedAt_ == 0 || now <= static_cast<curl_off_t>(maximumRefusalBody))
        return 0;
    transfer.endRefusal();
    return 1;
}

HttpOutcome Transfer::outcome(CURL* easy, CURLcode code) const {
    HttpOutcome result;
    result.status = status_;
    result.bytes = bytes_;
    result.connected = connected_;
    result.answeredChallenge = answeredChallenge_ && headerComplete_;
    result.connectTimeOver = !connected_ && code == CURLE_OPERATION_TIMEDOUT;
    // A refusal is known when its header is complete; a failure of its body changes nothing.
    const bool isRefused = headerComplete_ && isRefusal() && code != CURLE_ABORTED_BY_CALLBACK;
    const bool isComplete = headerComplete_ && code == CURLE_OK;
    if (isComplete || isRefused || earlyEnd_ == EarlyEnd::BufferFull || earlyEnd_ == EarlyEnd::RefusalKnown)
        return result;
    if (code == CURLE_OK ||
        earlyEnd_ == EarlyEnd::HeaderTooLong) { // libcurl takes a header that was cut off for a complete one
        result.transport = CURLE_WEIRD_SERVER_REPLY;
        result.reason =
            code == CURLE_OK ? "the response header breaks off" : "the response header is too long";
        return result;
    }
    result.transport = code;
    result.reason = error_[0] != '\0' ? error_.data() : curl_easy_strerror(code);
    long systemError = 0;
    curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &systemError);
    result.systemError = static_cast<int>(systemError);
    return result;
}

} // namespace network
