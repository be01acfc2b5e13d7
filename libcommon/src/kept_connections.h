// The sockets that libcurl keeps open for the next request, and their end when none comes.
//
// libcurl only looks at a kept connection when it is asked for the next transfer, which for an idle decoder may be
// never, while an encoder supports only few connections. So a detached thread, alive only while something is kept,
// shuts the idle sockets down: the encoder sees the end of the connection. It calls no function of libcurl or OpenSSL;
// libcurl finds the dead socket at its next check and closes it.
//
// Never destroyed: the thread may outlive everything else.
#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <mutex>
#include <set>

namespace network {

class KeptConnections {
public:
    // Sockets are shut down `idleTime` microseconds after the last use.
    explicit KeptConnections(std::int64_t idleTime) : idleTime_(idleTime) {}
    KeptConnections(const KeptConnections&) = delete;
    KeptConnections& operator=(const KeptConnections&) = delete;

    // libcurl's socket callbacks; `self` is the object. Sockets are close-on-exec: players inherit none.
    static curl_socket_t open(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int close(void* self, curl_socket_t socket);

    // While in use, nothing is shut down.
    void beginUse();
    void endUse();

private:
    void startCloser();
    void closeWhenIdle();
    bool shutDownIfIdle(std::int64_t& lookAgainAt);

    const std::int64_t idleTime_;
    std::mutex
        lock_; // guards all below; also held while a socket is closed, so that its number is not reused
    std::set<curl_socket_t> sockets_;
    bool inUse_ = false;
    bool closerRuns_ = false;
    std::int64_t idleSince_ = 0;
};

} // namespace network
