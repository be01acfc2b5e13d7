#include "appliance/streams/byte_stream.h"

#include <libcommon/clock.h>
#include <libcommon/params.h>

#include <array>
#include <curl/curl.h>
#include <poll.h>

namespace streams {
namespace {

constexpr std::int64_t sendLimitUs = 5'000'000;

} // namespace

struct ByteStream::Handle {
    CURL* curl = curl_easy_init();
    std::array<char, CURL_ERROR_SIZE> error{};
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { curl_easy_cleanup(curl); }
};

ByteStream::ByteStream() : handle_(std::make_unique<Handle>()) {}
ByteStream::~ByteStream() = default;

bool configureTls(void* curlHandle) {
    const ParamWrapper parameters(0, false);
    const bool verified = parameters["Network.TLS.Verify"] != "no";
    const std::string authorities = parameters["Network.TLS.CAFile"].toString();
    bool good = curl_easy_setopt(curlHandle, CURLOPT_SSL_VERIFYPEER, verified ? 1L : 0L) == CURLE_OK &&
                curl_easy_setopt(curlHandle, CURLOPT_SSL_VERIFYHOST, verified ? 2L : 0L) == CURLE_OK;
    if (verified && !authorities.empty())
        good = good && curl_easy_setopt(curlHandle, CURLOPT_CAINFO, authorities.c_str()) == CURLE_OK;
    return good;
}

std::string ByteStream::open(const std::string& host, std::uint16_t port, bool tls, int timeoutMs) {
    CURL* curl = handle_->curl;
    const bool bracketed = host.find(':') != std::string::npos && host.front() != '[';
    const std::string url = std::string(tls ? "https://" : "http://") + (bracketed ? "[" : "") + host +
                            (bracketed ? "]" : "") + ":" + std::to_string(port) + "/";
    bool good = curl != nullptr && curl_easy_setopt(curl, CURLOPT_URL, url.c_str()) == CURLE_OK &&
                curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L) == CURLE_OK &&
                curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
                curl_easy_setopt(curl, CURLOPT_PROXY, "") == CURLE_OK &&
                curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, handle_->error.data()) == CURLE_OK &&
                (timeoutMs <= 0 ||
                 curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeoutMs)) == CURLE_OK);
    if (tls)
        good = good && configureTls(curl);
    if (!good)
        return "libcurl can't be used";
    const CURLcode code = curl_easy_perform(curl);
    if (code == CURLE_OK)
        return "";
    return handle_->error[0] != '\0' ? handle_->error.data() : curl_easy_strerror(code);
}

bool ByteStream::send(std::string_view bytes) {
    const std::int64_t until = gettimeusec() + sendLimitUs;
    while (!bytes.empty()) {
        std::size_t sent = 0;
        const CURLcode code = curl_easy_send(handle_->curl, bytes.data(), bytes.size(), &sent);
        if (code == CURLE_OK) {
            bytes.remove_prefix(sent);
            continue;
        }
        if (code != CURLE_AGAIN || gettimeusec() > until)
            return false;
        pollfd writable{descriptor(), POLLOUT, 0};
        poll(&writable, 1, 100);
    }
    return true;
}

ByteStream::Read ByteStream::receive(char* bytes, std::size_t size, std::size_t& count) {
    count = 0;
    const CURLcode code = curl_easy_recv(handle_->curl, bytes, size, &count);
    if (code == CURLE_AGAIN)
        return Read::nothing;
    return code == CURLE_OK && count > 0 ? Read::some : Read::closed;
}

int ByteStream::descriptor() const {
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(handle_->curl, CURLINFO_ACTIVESOCKET, &socket);
    return socket;
}

std::string ByteStream::peer() const {
    const char* address = nullptr;
    curl_easy_getinfo(handle_->curl, CURLINFO_PRIMARY_IP, &address);
    return address == nullptr ? "" : address;
}

} // namespace streams
