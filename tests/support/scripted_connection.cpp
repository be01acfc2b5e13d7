#include "tests/support/scripted_connection.h"

#include <array>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace scripted {

namespace {

// Where the request in `text` ends; npos while its empty line is missing.
std::size_t requestEnd(const std::string& text) {
    const std::size_t end = text.find("\r\n\r\n");
    return end == std::string::npos ? end : end + 4;
}

} // namespace

Connection::Connection(int descriptor, ssl_ctx_st* context, bool alsoPlain)
    : descriptor_(descriptor), alsoPlain_(alsoPlain),
      tls_(context == nullptr ? nullptr : SSL_new(context), &SSL_free) {
    if (tls_)
        SSL_set_fd(tls_.get(), descriptor_);
}

Connection::~Connection() {
    ::close(descriptor_);
}

bool Connection::shakeHands() {
    constexpr char tlsHandshake = 0x16;
    char first = 0;
    if (alsoPlain_ && recv(descriptor_, &first, 1, MSG_PEEK) == 1 && first != tlsHandshake)
        tls_.reset();
    return !tls_ || SSL_accept(tls_.get()) == 1;
}

ssize_t Connection::receive(char* bytes, std::size_t size) {
    return tls_ ? SSL_read(tls_.get(), bytes, static_cast<int>(size)) : recv(descriptor_, bytes, size, 0);
}

std::string Connection::read(bool anything) {
    while (anything ? pending_.empty() : requestEnd(pending_) == std::string::npos) {
        std::array<char, 4096> bytes;
        const ssize_t count = receive(bytes.data(), bytes.size());
        if (count <= 0)
            return "";
        pending_.append(bytes.data(), static_cast<std::size_t>(count));
    }
    const std::size_t end = anything ? pending_.size() : requestEnd(pending_);
    std::string request = pending_.substr(0, end);
    pending_.erase(0, end);
    return request;
}

bool Connection::write(const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const char* rest = bytes.data() + written;
        const std::size_t left = bytes.size() - written;
        const ssize_t count = tls_ ? SSL_write(tls_.get(), rest, static_cast<int>(left))
                                   : ::send(descriptor_, rest, left, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

void Connection::waitForClose() {
    std::array<char, 4096> bytes;
    while (receive(bytes.data(), bytes.size()) > 0) {
    }
}

void Connection::resetOnClose() {
    const linger none = {.l_onoff = 1, .l_linger = 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

void Connection::wake() {
    shutdown(descriptor_, SHUT_RDWR);
}

} // namespace scripted
