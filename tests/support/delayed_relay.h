// A relay between two ports of 127.0.0.1 that makes the way between them as long as to another town: every
// byte is that much later, and a new connection's first bytes by a whole round trip more, as if the connection
// itself had to be made over that way.
//
// It counts what a client has to wait for: connections, and exchanges. An exchange is a request with its
// answer, whatever protocol it is: the client speaks first, or again after the server has spoken, and does not
// leave at once (as TLS says goodbye). One thread serves all connections; it blocks every signal and is joined by the destructor.
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
