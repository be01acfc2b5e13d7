// One accepted TCP connection, plain or under TLS. Every call that waits has a time limit.
//
// One thread reads. Any thread may write: the bytes of two writes are never mixed. Any thread may call shutdown(),
// which ends every wait at once. The destructor closes the descriptor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

struct ssl_st;
struct ssl_ctx_st;

using Deadline = std::chrono::steady_clock::time_point;
// The point in time that is `time` from now.
inline Deadline in(std::chrono::milliseconds time) {
    return std::chrono::steady_clock::now() + time;
}

class Connection {
public:
    // Results of read() that are not a number of bytes.
    static constexpr long endOfStream = 0;
    static constexpr long timedOut = -1;
    static constexpr long failed = -2;

    // Owns the descriptor from now on. `tls` is null for a plain connection; otherwise call handshake() first.
    Connection(int fd, ssl_ctx_st* tls);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Returns true at once on a plain connection.
    bool handshake(Deadline deadline);

    // The number of bytes read, at least one, or one of the values above.
    long read(char* buffer, std::size_t size, Deadline deadline);

    // Whether peek() has seen enough bytes.
    using Enough = std::function<bool(std::string_view bytes)>;
    // Returns the next bytes, at most `limit`, without consuming them. Waits until `enough` accepts them. When the peer
    // sends no more or the deadline has passed, returns the bytes so far, possibly none. Plain connections only.
    std::string peek(std::size_t limit, Deadline deadline, const Enough& enough) const;

    // True when the kernel has taken all bytes in time.
    bool write(std::initializer_list<std::string_view> pieces, Deadline deadline);

    // From now on write() sends single bytes with this pause before each; 0 switches that off.
    void setByteDelay(std::chrono::milliseconds delay) { byteDelay_ = delay; }

    // Reads and drops everything until the peer leaves or the deadline has passed.
    void waitForPeerToLeave(Deadline deadline);

    // True when the peer has closed its side and there is nothing left to read. Never waits.
    bool peerHasLeft() const;

    // Sleeps until `end` or until the connection breaks.
    void sleepUntil(Deadline end) const;

    void shutdown();
    // From now on cut() does nothing.
    void spare() { spared_ = true; }
    // Resets the connection, as a crashed machine would. Any thread.
    void cut();
    // The peer will see a reset, not an orderly end, when the descriptor is closed.
    void abortOnClose() const;

    bool peerIsLoopback() const;
    std::string peerAddress() const; // numeric, no port
    std::uint16_t peerPort() const;
    std::string localAddress() const; // numeric, no port
    bool underTls() const { return tls_ != nullptr; }
    int fd() const { return fd_; }

private:
    bool peerSendsNoMore() const;
    bool waitFor(short events, Deadline deadline) const;
    bool waitForTls(int result, Deadline deadline);
    bool writePlain(std::string_view bytes, Deadline deadline);
    bool writeTls(std::string_view bytes, Deadline deadline);
    bool writeSome(std::string_view bytes, Deadline deadline);

    const int fd_;
    ssl_st* tls_ = nullptr;
    std::mutex writeLock_;
    std::chrono::milliseconds byteDelay_{0};
    std::atomic<bool> spared_ = false;
};
