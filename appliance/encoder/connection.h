// One accepted TCP connection, plain or under TLS, with a time limit on everything that waits.
//
// One thread reads. Any thread may write: a write is one piece on the wire, never mixed with another's.
// shutdown() may be called by any thread and ends every wait at once. The descriptor is closed by the
// destructor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

struct ssl_st;
struct ssl_ctx_st;

using Deadline = std::chrono::steady_clock::time_point;
inline Deadline in(std::chrono::milliseconds time) {
    return std::chrono::steady_clock::now() + time;
}

class Connection {
public:
    // What a read brought, where it is not a number of bytes.
    static constexpr long endOfStream = 0;
    static constexpr long timedOut = -1;
    static constexpr long failed = -2;

    // Takes the descriptor over. `tls` may be null; else the connection begins with a handshake().
    Connection(int fd, ssl_ctx_st* tls);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // True at once without TLS.
    bool handshake(Deadline deadline);

    // At least one byte, or one of the values above.
    long read(char* buffer, std::size_t size, Deadline deadline);

    // The bytes that a read would bring first, when there are so many; they stay to be read. Less, also nothing,
    // when the peer sends no more or the deadline is over. Without TLS.
    std::string peek(std::size_t size, Deadline deadline) const;

    // True when all of it was handed to the kernel in time.
    bool write(std::initializer_list<std::string_view> pieces, Deadline deadline);

    // From now on every byte is sent alone, this long after the one before it.
    void setByteDelay(std::chrono::milliseconds delay) { byteDelay_ = delay; }

    // Reads and drops what comes until the peer has left or the deadline is over.
    void waitForPeerToLeave(Deadline deadline);

    // True when the peer has closed its side and nothing is left to be read. Never waits.
    bool peerHasLeft() const;

    // Sleeps; less long when the connection ends meanwhile.
    void sleepUntil(Deadline end) const;

    void shutdown();
    // From now on cut() leaves this connection alone.
    void spare() { spared_ = true; }
    // Ends the connection as if the machine had gone, unless it is spared. Any thread.
    void cut();
    // Closing will be seen by the peer as a reset, as if the machine had gone.
    void abortOnClose() const;

    bool peerIsLoopback() const;
    std::string peerAddress() const; // numeric, no port
    std::uint16_t peerPort() const;
    std::string localAddress() const; // numeric, no port
    bool underTls() const { return tls_ != nullptr; }
    int fd() const { return fd_; }

private:
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
