#include "appliance/streams/http_stream.h"

#include "appliance/streams/byte_stream.h"
#include "appliance/streams/http_answer.h"

#include <libcommon/log.h>

#include <array>
#include <curl/curl.h>
#include <memory>
#include <poll.h>
#include <string_view>
#include <vector>

namespace streams {
namespace {

constexpr std::size_t headerLimit = 64 * 1024;
constexpr curl_off_t refusalLimit = 16 * 1024;
constexpr int wantedPollMs = 500;
constexpr std::size_t receiveBytes = 128 * 1024; // most JPEG pictures fit

std::string urlOf(const HttpSource& source) {
    const bool bracketed = source.host.find(':') != std::string::npos && source.host.front() != '[';
    return std::string(source.https ? "https://" : "http://") + (bracketed ? "[" : "") + source.host +
           (bracketed ? "]" : "") + ":" + std::to_string(source.port) + source.target;
}

std::string hostOf(const HttpSource& source) {
    const std::string url = urlOf(source);
    const std::size_t start = url.find("://") + 3;
    return url.substr(start, url.find('/', start) - start);
}

// The transfer without TLS and passwords. It needs no library, so that its request is sent at once.
std::string receivePlain(const HttpSource& source, const HttpTaker& taker) {
    ByteStream stream;
    std::string reason = stream.open(source.host, source.port, false, source.connectMs);
    if (!reason.empty())
        return reason;
    if (!stream.send("GET " + source.target + " HTTP/1.1\r\nHost: " + hostOf(source) +
                     "\r\nUser-Agent: decoder\r\nAccept: */*\r\n\r\n"))
        return "the request can't be sent";
    int answered = 0;
    HttpAnswer answer(
        [&](int status, const std::string& type) {
            answered = status;
            return status == 200 && taker.begin(type);
        },
        taker.body);
    std::vector<char> bytes(receiveBytes);
    for (ByteStream::Read read = ByteStream::Read::nothing; read != ByteStream::Read::closed;) {
        std::size_t count = 0;
        read = stream.receive(bytes.data(), bytes.size(), count);
        if (read == ByteStream::Read::some && !answer.feed(bytes.data(), count))
            break;
        if (taker.wanted && !taker.wanted())
            return "the stream is not wanted";
        pollfd readable{stream.descriptor(), POLLIN, 0};
        if (read == ByteStream::Read::nothing)
            poll(&readable, 1, taker.wanted ? wantedPollMs : -1);
    }
    if (answered != 0 && answered != 200)
        return "the encoder answered " + std::to_string(answered);
    return answer.fault().empty() ? "the encoder ended the stream" : answer.fault();
}

class Transfer {
public:
    Transfer(const HttpSource& source, const HttpTaker& taker) : source_(source), taker_(taker) {}
    std::string run();

private:
    template<class Value>
    void set(CURLoption option, Value value) {
        if (curl_easy_setopt(curl_.get(), option, value) != CURLE_OK)
            unset_ = true;
    }
    void configure();
    long status() const;
    std::string outcome(CURLcode code);

    static std::size_t onHeader(char* line, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
    static int onProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t upTotal, curl_off_t upNow);

    const HttpSource& source_;
    const HttpTaker& taker_;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_{curl_easy_init(), &curl_easy_cleanup};
    std::array<char, CURL_ERROR_SIZE> error_{};
    std::size_t headerBytes_ = 0;
    bool begun_ = false;
    bool unset_ = false;
};

void Transfer::configure() {
    set(CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
}

long Transfer::status() const {
    long status = 0;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

std::size_t Transfer::onHeader(char* /*line*/, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.headerBytes_ += size * count;
    return transfer.headerBytes_ > headerLimit ? 0 : size * count;
}

std::size_t Transfer::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    if (!transfer.begun_) {
        if (transfer.status() != 200)
            return 0;
        const char* type = nullptr;
        curl_easy_getinfo(transfer.curl_.get(), CURLINFO_CONTENT_TYPE, &type);
        transfer.begun_ = true;
        if (!transfer.taker_.begin(type == nullptr ? "" : type))
            return 0;
    }
    return transfer.taker_.body(bytes, size * count) ? size * count : 0;
}

// libcurl reads the body of a 401 itself before it answers with credentials. An endless one never reaches
// onBody(), so it is limited here.
int Transfer::onProgress(void* self, curl_off_t /*total*/, curl_off_t now, curl_off_t /*upTotal*/,
                         curl_off_t /*upNow*/) {
    const auto& transfer = *static_cast<Transfer*>(self);
    if (transfer.taker_.wanted && !transfer.taker_.wanted())
        return 1;
    return !transfer.begun_ && now > refusalLimit && transfer.status() >= 400 ? 1 : 0;
}

std::string Transfer::outcome(CURLcode code) {
    const long answered = status();
    if (!begun_ && answered != 0 && answered != 200)
        return "the encoder answered " + std::to_string(answered);
    if (headerBytes_ > headerLimit)
        return "the response header is too long";
    if (code == CURLE_OK)
        return "the encoder ended the stream";
    return error_[0] != '\0' ? error_.data() : curl_easy_strerror(code);
}

std::string Transfer::run() {
    if (curl_ == nullptr)
        return "libcurl can't be used";
    configure();
    if (unset_ || !configureRequest(curl_.get(), source_, error_.data()))
        return "the request can't be made";
    const CURLcode code = curl_easy_perform(curl_.get());
    std::string reason = outcome(code);
    if (code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE)
        logmsg(3, "TLS certificate of %s refused: %s", source_.host.c_str(), reason.c_str());
    return reason;
}

} // namespace

bool configureRequest(void* curlHandle, const HttpSource& source, char* error) {
    bool good = true;
    const auto set = [&](CURLoption option, auto value) {
        good = good && curl_easy_setopt(curlHandle, option, value) == CURLE_OK;
    };
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_ERRORBUFFER, error);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_PROXY, "");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_USERAGENT, "decoder");
    set(CURLOPT_BUFFERSIZE, static_cast<long>(receiveBytes));
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    if (source.connectMs > 0)
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(source.connectMs));
    if (!source.user.empty()) {
        set(CURLOPT_HTTPAUTH, static_cast<unsigned long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
        set(CURLOPT_USERNAME, source.user.c_str());
        set(CURLOPT_PASSWORD, source.password.c_str());
    }
    set(CURLOPT_URL, urlOf(source).c_str());
    return good && (!source.https || configureTls(curlHandle));
}

void startHttp() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

std::string receiveHttp(const HttpSource& source, const HttpTaker& taker) {
    return source.https || !source.user.empty() ? Transfer(source, taker).run() : receivePlain(source, taker);
}

} // namespace streams
