// How much clients may take of the panel's server.
#pragma once

#include <cstddef>

namespace panel {

struct ServerLimits {
    std::size_t connections = 512;       // in all
    std::size_t strangers = 128;         // connections without a log-in, in all
    std::size_t strangersOfAddress = 48; // and from one address
    std::size_t headBytes = 16 * 1024;
    std::size_t bodyBytes = 256 * 1024; // of any request; a route has its own bound
    unsigned headSeconds = 10; // from the first byte, or of a new connection, to the end of the header
    unsigned bodySeconds = 20;
    unsigned idleSeconds = 60;   // between two requests
    unsigned answerSeconds = 30; // without the client taking any byte of an answer
    unsigned drainSeconds = 5;   // of reading and dropping what a client still sends after its last answer
    std::size_t drainBytes = 4 * 1024 * 1024; // of it
};

} // namespace panel
