// Limits for clients, so that none of them can use up the panel. docs/panel.md lists what happens at each limit.
#pragma once

#include <cstddef>

namespace panel {

struct ServerLimits {
    std::size_t connections = 512;       // open at the same time
    std::size_t strangers = 128;         // of these, connections without a log-in
    std::size_t strangersOfAddress = 48; // of these, from one address
    std::size_t headBytes = 16 * 1024;   // length of a header
    std::size_t bodyBytes = 256 * 1024;  // length of any body; most routes allow less
    unsigned headSeconds = 10;   // until the header is complete; a new connection's time starts at once
    unsigned bodySeconds = 20;   // until the body is complete
    unsigned idleSeconds = 60;   // without a request
    unsigned answerSeconds = 30; // in which the client reads no byte of its answer
    // After its last answer, a client may still be sending. That is read and dropped, within these two limits.
    unsigned drainSeconds = 5;
    std::size_t drainBytes = 4 * 1024 * 1024;
};

} // namespace panel
