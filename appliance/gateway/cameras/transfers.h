// libcurl's transfers on the event loop: several at a time, and none of them waits.
#pragma once

#include "appliance/gateway/loop/event_loop.h"

#include <curl/curl.h>
#include <functional>
#include <unordered_map>

namespace gateway {

// For the loop's thread.
class Transfers {
public:
    // The loop must outlive it.
    explicit Transfers(EventLoop& loop);
    ~Transfers();
    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;

    // Begins a prepared transfer. The handle stays the caller's, who calls remove() before cleaning it up, and neither
    // in a function that libcurl calls. `done` is called once when the transfer has ended.
    using Done = std::function<void(CURLcode result)>;
    void add(CURL* handle, Done done);
    void remove(CURL* handle);

private:
    static int onSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* unused);
    static int onTimer(CURLM* multi, long delay, void* self);
    void act(curl_socket_t socket, int events);
    void callDone();

    EventLoop& loop_;
    CURLM* multi_;
    EventLoop::Timer timer_ = 0;
    std::unordered_map<CURL*, Done> done_;
};

} // namespace gateway
