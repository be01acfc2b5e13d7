#include "appliance/streams/byte_stream.h"

#include <libcommon/clock.h>
#include <libcommon/network.h>
#include <libcommon/params.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <curl/curl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace streams {

class ByteStream::Transport {
public:
    Transport() = default;
    virtual ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    virtual std::string open(const std::string& host, std::uint16_t port, int timeoutMs) = 0;
    // Sends what is possible without waiting; `sent` is set to the number of bytes. False when the connection broke.
    virtual bool sendSome(std::string_view bytes, std::size_t& sent) = 0;
    virtual Read receive(char* bytes, std::size_t size, std::size_t& count) = 0;
    virtual int descriptor() const = 0;
    virtual std::string peer() const = 0;
};

namespace {

constexpr std::int64_t sendLimitUs = 5'000'000;

class PlainTransport : public ByteStream::Transport {
public:
    ~PlainTransport() override {
        if (socket_ >= 0)
            close(socket_);
    }

    std::string open(const std::string& host, std::uint16_t port, int timeoutMs) override {
        const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
        socket_ = connectTCP(bracketed ? host.substr(1, host.size() - 2) : host, port, false,
                             (timeoutMs + 999) / 1000);
        if (socket_ < 0)
            return "no connection to " + host + " port " + std::to_string(port) + ": " + std::strerror(errno);
        // A request must not wait for the acknowledgement of the one before it.
        const int yes = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        return "";
    }

    bool sendSome(std::string_view bytes, std::size_t& sent) override {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        sent = count > 0 ? static_cast<std::size_t>(count) : 0;
        return count >= 0 || errno == EAGAIN || errno == EINTR;
    }

    ByteStream::Read receive(char* bytes, std::size_t size, std::size_t& count) override {
        const ssize_t got = recv(socket_, bytes, size, MSG_DONTWAIT);
        count = got > 0 ? static_cast<std::size_t>(got) : 0;
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            return ByteStream::Read::nothing;
        return got > 0 ? ByteStream::Read::some : ByteStream::Read::closed;
    }

    int descriptor() const override { return socket_; }

    std::string peer() const override {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        std::array<char, NI_MAXHOST> text{};
        if (getpeername(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
            getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, text.data(), text.size(),
                        nullptr, 0, NI_NUMERICHOST) != 0)
            return "";
        return text.data();
    }

private:
    int socket_ = -1;
};

class TlsTransport : public ByteStream::Transport {
public:
    ~TlsTransport() override { curl_easy_cleanup(curl_); }

    std::string open(const std::string& host, std::uint16_t port, int timeoutMs) override {
        const bool bracketed = host.find(':') != std::string::npos && host.front() != '[';
        const std::string url = std::string("https://") + (bracketed ? "[" : "") + host +
                                (bracketed ? "]" : "") + ":" + std::to_string(port) + "/";
        const bool good = curl_ != nullptr && curl_easy_setopt(curl_, CURLOPT_URL, url.c_str()) == CURLE_OK &&
                          curl_easy_setopt(curl_, CURLOPT_CONNECT_ONLY, 1L) == CURLE_OK &&
                          curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
                          curl_easy_setopt(curl_, CURLOPT_PROXY, "") == CURLE_OK &&
                          curl_easy_setopt(curl_, CURLOPT_ERRORBUFFER, error_.data()) == CURLE_OK &&
                          (timeoutMs <= 0 || curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT_MS,
                                                              static_cast<long>(timeoutMs)) == CURLE_OK) &&
                          configureTls(curl_);
        if (!good)
            return "libcurl can't be used";
        const CURLcode code = curl_easy_perform(curl_);
        if (code == CURLE_OK)
            return "";
        return error_[0] != '\0' ? error_.data() : curl_easy_strerror(code);
    }

    bool sendSome(std::string_view bytes, std::size_t& sent) override {
        sent = 0;
        const CURLcode code = curl_easy_send(curl_, bytes.data(), bytes.size(), &sent);
        return code == CURLE_OK || code == CURLE_AGAIN;
    }

    ByteStream::Read receive(char* bytes, std::size_t size, std::size_t& count) override {
        count = 0;
        const CURLcode code = curl_easy_recv(curl_, bytes, size, &count);
        if (code == CURLE_AGAIN)
            return ByteStream::Read::nothing;
        return code == CURLE_OK && count > 0 ? ByteStream::Read::some : ByteStream::Read::closed;
    }

    int descriptor() const override {
        curl_socket_t socket = CURL_SOCKET_BAD;
        curl_easy_getinfo(curl_, CURLINFO_ACTIVESOCKET, &socket);
        return socket;
    }

    std::string peer() const override {
        const char* address = nullptr;
        curl_easy_getinfo(curl_, CURLINFO_PRIMARY_IP, &address);
        return address == nullptr ? "" : address;
    }

private:
    CURL* curl_ = curl_easy_init();
    std::array<char, CURL_ERROR_SIZE> error_{};
};

} // namespace

ByteStream::ByteStream() = default;
ByteStream::~ByteStream() = default;

TlsChecks tlsChecks() {
    const ParamWrapper parameters(0, false);
    return {parameters["Network.TLS.Verify"] != "no", parameters["Network.TLS.CAFile"].toString()};
}

bool configureTls(void* curlHandle) {
    const auto [verified, authorities] = tlsChecks();
    bool good = curl_easy_setopt(curlHandle, CURLOPT_SSL_VERIFYPEER, verified ? 1L : 0L) == CURLE_OK &&
                curl_easy_setopt(curlHandle, CURLOPT_SSL_VERIFYHOST, verified ? 2L : 0L) == CURLE_OK;
    if (verified && !authorities.empty())
        good = good && curl_easy_setopt(curlHandle, CURLOPT_CAINFO, authorities.c_str()) == CURLE_OK;
    return good;
}

std::string ByteStream::open(const std::string& host, std::uint16_t port, bool tls, int timeoutMs) {
    std::unique_ptr<Transport> transport;
    if (tls)
        transport = std::make_unique<TlsTransport>();
    else
        transport = std::make_unique<PlainTransport>();
    std::string failure = transport->open(host, port, timeoutMs);
    if (failure.empty())
        transport_ = std::move(transport);
    return failure;
}

bool ByteStream::send(std::string_view bytes) {
    const std::int64_t until = gettimeusec() + sendLimitUs;
    while (!bytes.empty()) {
        std::size_t sent = 0;
        if (transport_ == nullptr || !transport_->sendSome(bytes, sent) || gettimeusec() > until)
            return false;
        bytes.remove_prefix(sent);
        if (sent > 0)
            continue;
        pollfd writable{descriptor(), POLLOUT, 0};
        poll(&writable, 1, 100);
    }
    return true;
}

ByteStream::Read ByteStream::receive(char* bytes, std::size_t size, std::size_t& count) {
    count = 0;
    return transport_ == nullptr ? Read::closed : transport_->receive(bytes, size, count);
}

int ByteStream::descriptor() const {
    return transport_ == nullptr ? -1 : transport_->descriptor();
}

std::string ByteStream::peer() const {
    return transport_ == nullptr ? "" : transport_->peer();
}

} // namespace streams
