#include "appliance/gateway/cameras/connection.h"

#include "appliance/streams/byte_stream.h"

#include <libcommon/log.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t readBytes = 64 * 1024;
constexpr std::size_t mostWaiting = 64 * 1024;
// Then the loop looks after the others, even when one camera sends without a pause.
constexpr int readsAtOnce = 16;

Failure connectFailure(int error, const CameraUrl& url, const char* text) {
    switch (error) {
    case ECONNREFUSED:
        return {Fault::refused, url.place() + " refuses connections"};
    case EHOSTUNREACH:
    case ENETUNREACH:
    case ENETDOWN:
    case EADDRNOTAVAIL:
        return {Fault::noRoute, "no route to " + url.place()};
    default:
        return {Fault::noConnection, "no connection to " + url.place() + ": " + text};
    }
}

} // namespace

Failure failureOf(CURL* handle, CURLcode result, const CameraUrl& url, const char* error) {
    const char* text = *error != '\0' ? error : curl_easy_strerror(result);
    long number = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &number);
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return {Fault::noAddress, "the name " + url.host + " is unknown"};
    case CURLE_COULDNT_CONNECT:
        return connectFailure(static_cast<int>(number), url, text);
    case CURLE_OPERATION_TIMEDOUT:
        return {Fault::noConnection, url.place() + " does not answer"};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
        return {Fault::noConnection, "the certificate of " + url.place() + " is refused: " + text};
    default:
        return {Fault::noConnection, "no connection to " + url.place() + ": " + text};
    }
}

CameraConnection::CameraConnection(EventLoop& loop, Transfers& transfers, CameraUrl url,
                                   ConnectionEvents events)
    : loop_(loop), transfers_(transfers), url_(std::move(url)), events_(std::move(events)),
      curl_(curl_easy_init()) {}

CameraConnection::~CameraConnection() {
    close();
    transfers_.remove(curl_);
    curl_easy_cleanup(curl_);
}

void CameraConnection::open(std::chrono::milliseconds limit) {
    const std::string place = std::string(url_.usesTls() ? "https://" : "http://") + url_.place() + "/";
    const bool good =
        curl_easy_setopt(curl_, CURLOPT_URL, place.c_str()) == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_CONNECT_ONLY, 1L) == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_PROXY, "") == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_FRESH_CONNECT, 1L) == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_ERRORBUFFER, error_.data()) == CURLE_OK &&
        curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limit.count())) == CURLE_OK &&
        (!url_.usesTls() || streams::configureTls(curl_));
    // Without libcurl nothing happens until the session's time is over.
    if (!good)
        return logmsg(3, "libcurl refuses an option: no connection to %s", url_.place().c_str());
    transfers_.add(curl_, [this](CURLcode result) { onDone(result); });
}

void CameraConnection::onDone(CURLcode result) {
    if (closed_)
        return;
    if (result != CURLE_OK)
        return end(failureOf(curl_, result, url_, error_.data()));
    curl_easy_getinfo(curl_, CURLINFO_ACTIVESOCKET, &socket_);
    loop_.watch(socket_, EPOLLIN, [this](std::uint32_t events) { onReady(events); });
    events_.connected();
}

void CameraConnection::onReady(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0)
        writeWaiting();
    if (!closed_ && (events & ~std::uint32_t{EPOLLOUT}) != 0)
        readAll();
}

void CameraConnection::readAll() {
    static thread_local std::array<char, readBytes> bytes;
    for (int i = 0; i < readsAtOnce && !closed_; ++i) {
        std::size_t count = 0;
        const CURLcode code = curl_easy_recv(curl_, bytes.data(), bytes.size(), &count);
        if (code == CURLE_AGAIN)
            break;
        if (code != CURLE_OK || count == 0) {
            events_.pause();
            return end({Fault::ended, url_.place() + " closed the connection"});
        }
        events_.received({bytes.data(), count});
        // A plain socket that gave less than there is room for is empty now; one more system call would only say so.
        if (!url_.usesTls() && count < bytes.size())
            break;
    }
    if (!closed_)
        events_.pause();
}

void CameraConnection::send(std::string_view bytes) {
    if (!isOpen() || closed_)
        return;
    waiting_ += bytes;
    if (waiting_.size() > mostWaiting)
        return end({Fault::noAnswer, url_.place() + " does not read what it is sent"});
    writeWaiting();
}

void CameraConnection::writeWaiting() {
    while (!waiting_.empty()) {
        std::size_t sent = 0;
        const CURLcode code = curl_easy_send(curl_, waiting_.data(), waiting_.size(), &sent);
        if (code == CURLE_AGAIN)
            break;
        if (code != CURLE_OK)
            return loop_.change(socket_, EPOLLIN); // the reading side reports the end
        waiting_.erase(0, sent);
    }
    loop_.change(socket_, waiting_.empty() ? std::uint32_t{EPOLLIN} : std::uint32_t{EPOLLIN | EPOLLOUT});
}

void CameraConnection::close() {
    if (std::exchange(closed_, true))
        return;
    if (isOpen())
        loop_.forget(socket_);
}

void CameraConnection::end(const Failure& failure) {
    if (closed_)
        return;
    close();
    events_.ended(failure);
}

std::string CameraConnection::peer() const {
    const char* address = nullptr;
    curl_easy_getinfo(curl_, CURLINFO_PRIMARY_IP, &address);
    return address == nullptr ? "" : address;
}

std::string CameraConnection::local() const {
    const char* address = nullptr;
    curl_easy_getinfo(curl_, CURLINFO_LOCAL_IP, &address);
    return address == nullptr ? "" : address;
}

} // namespace gateway
