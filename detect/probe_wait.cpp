#include "detect/probe_wait.h"

#include "detect/decimal.h"
#include "detect/detection_state.h"
#include "recorder/recorder.h"

#include <libcommon/clock.h>
#include <libcommon/interrupt.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <ctime>
#include <sys/socket.h>

namespace detect {
namespace {

// Reads a timeout in the same way as libcommon.
int limitSeconds() {
    return state.timeoutSeconds > 0 ? state.timeoutSeconds : 10;
}

bool readableWithin(int connection, double seconds) {
    pollfd socket{connection, POLLIN, 0};
    const int ready = waitReadable({&socket, 1}, seconds);
    if (ready == -1 && errno == EINTR)
        setInterrupted();
    return ready > 0;
}

} // namespace

int waitReadable(std::span<pollfd> sockets, double seconds) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    sigaddset(&mask, SIGCHLD);
    sigdelset(&mask, SIGUSR1);
    sigdelset(&mask, SIGINT);
    const double whole = std::floor(seconds);
    const timespec time{static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
    return ppoll(sockets.data(), sockets.size(), &time, &mask);
}

namespace {

int skipAnnounced(int connection, const ResponseHeader& header) {
    const auto length = header.headers.find("Content-Length");
    const int announced = length == header.headers.end() ? 0 : decimalInt(length->second.c_str());
    const std::int64_t deadline = gettimeusec() + limitSeconds() * 1'000'000LL;
    char scratch[1024];
    int skipped = 0;
    while (skipped < announced) {
        const std::int64_t left = deadline - gettimeusec();
        if (left <= 0 || !readableWithin(connection, static_cast<double>(left) / 1e6))
            break;
        const int piece = std::min<int>(sizeof scratch, announced - skipped);
        const ssize_t got = recv(connection, scratch, static_cast<std::size_t>(piece), 0);
        if (got <= 0)
            break;
        skipped += static_cast<int>(got);
    }
    return skipped;
}

} // namespace

int skipBody(int connection, const ResponseHeader& header) {
    return recorder::outcome("skip", [&] { return skipAnnounced(connection, header); });
}

void awaitAnswer(int connection) {
    recorder::outcome("answer", [&] {
        ResponseHeader ignored;
        return readableWithin(connection, 1) ? parseResponseHeader(connection, ignored) : 1;
    });
}

} // namespace detect
