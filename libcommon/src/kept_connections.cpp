#include "libcommon/src/kept_connections.h"

#include <libcommon/clock.h>

#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace network {

curl_socket_t KeptConnections::open(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& kept = *static_cast<KeptConnections*>(self);
    const int fd =
        socket(address->family, address->socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address->protocol);
    if (fd < 0)
        return CURL_SOCKET_BAD;
    const std::lock_guard guard(kept.lock_);
    kept.sockets_.insert(fd);
    return fd;
}

int KeptConnections::close(void* self, curl_socket_t socket) {
    auto& kept = *static_cast<KeptConnections*>(self);
    const std::lock_guard guard(kept.lock_);
    kept.sockets_.erase(socket);
    return ::close(socket);
}

void KeptConnections::beginUse() {
    const std::lock_guard guard(lock_);
    inUse_ = true;
}

void KeptConnections::endUse() {
    const std::lock_guard guard(lock_);
    inUse_ = false;
    idleSince_ = gettimeusec();
    if (!sockets_.empty() && !closerRuns_)
        startCloser();
}

// Called with the lock held. Without a thread the connections end at libcurl's next check.
void KeptConnections::startCloser() {
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved); // the thread inherits it: no handler ever runs there
    try {
        std::thread(&KeptConnections::closeWhenIdle, this).detach();
        closerRuns_ = true;
    } catch (const std::system_error&) {
        closerRuns_ = false;
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

void KeptConnections::closeWhenIdle() {
    std::int64_t lookAt = gettimeusec() + idleTime_;
    do {
        const timespec when = {.tv_sec = static_cast<time_t>(lookAt / 1'000'000),
                               .tv_nsec = static_cast<long>(lookAt % 1'000'000) * 1000};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr);
    } while (!shutDownIfIdle(lookAt));
}

bool KeptConnections::shutDownIfIdle(std::int64_t& lookAgainAt) {
    const std::lock_guard guard(lock_);
    const std::int64_t now = gettimeusec();
    if (inUse_ || now < idleSince_ + idleTime_) {
        lookAgainAt = (inUse_ ? now : idleSince_) + idleTime_;
        return false;
    }
    for (const curl_socket_t socket : sockets_)
        shutdown(socket, SHUT_RDWR);
    closerRuns_ = false;
    return true;
}

} // namespace network
