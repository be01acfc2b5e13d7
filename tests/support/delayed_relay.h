// A relay between two ports of 127.0.0.1 that delays like a long network path: every byte arrives later by the path's
// delay. The first bytes of a new connection arrive another round trip later, for the connection's handshake.
//
// It counts connections and exchanges, because a client waits for each of them. An exchange is a request with its
// answer, in any protocol: the client sends first, or again after the server has sent, and does not close at once (as
// at the end of TLS). One thread serves all connections; it blocks every signal and is joined by the destructor.
#pragma once

#include <chrono>
#include <memory>

namespace scripted {

class DelayedRelay {
public:
    // Listens on `port` (0: a free one) and passes on to `target`.
    DelayedRelay(unsigned short port, unsigned short target, std::chrono::milliseconds eachWay);
    ~DelayedRelay();
    DelayedRelay(const DelayedRelay&) = delete;
    DelayedRelay& operator=(const DelayedRelay&) = delete;

    unsigned short port() const;
    int connections() const;
    int exchanges() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace scripted
