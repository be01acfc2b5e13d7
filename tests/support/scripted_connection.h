// One client of a scripted server: bytes in and out, plain or over TLS. Used by scripted_server.cpp only.
#pragma once

#include <memory>
#include <string>
#include <sys/types.h>

struct ssl_st;
struct ssl_ctx_st;

namespace scripted {

class Connection {
public:
    // Takes over `descriptor`. `context` null: no TLS. `alsoPlain`: TLS only when the client begins it.
    Connection(int descriptor, ssl_ctx_st* context, bool alsoPlain);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool shakeHands(); // true at once without TLS

    // Up to the empty line, or with `anything` the next bytes; "" when the client closed first.
    std::string read(bool anything);
    bool write(const std::string& bytes); // false when the client is gone
    void waitForClose();                  // reads and drops until the client closes

    void resetOnClose();
    void wake(); // from another thread: every read and write ends

private:
    ssize_t receive(char* bytes, std::size_t size);

    const int descriptor_;
    const bool alsoPlain_;
    std::unique_ptr<ssl_st, void (*)(ssl_st*)> tls_;
    std::string pending_; // received and not yet read
};

} // namespace scripted
