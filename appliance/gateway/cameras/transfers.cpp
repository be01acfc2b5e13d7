#include "appliance/gateway/cameras/transfers.h"

#include <utility>

namespace gateway {

Transfers::Transfers(EventLoop& loop) : loop_(loop), multi_(curl_multi_init()) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &Transfers::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &Transfers::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

Transfers::~Transfers() {
    loop_.cancel(timer_);
    curl_multi_cleanup(multi_);
}

void Transfers::add(CURL* handle, Done done) {
    done_[handle] = std::move(done);
    curl_multi_add_handle(multi_, handle);
}

void Transfers::remove(CURL* handle) {
    curl_multi_remove_handle(multi_, handle);
    done_.erase(handle);
}

int Transfers::onSocket(CURL* /*handle*/, curl_socket_t socket, int what, void* self, void* /*unused*/) {
    auto* transfers = static_cast<Transfers*>(self);
    if (what == CURL_POLL_REMOVE) {
        transfers->loop_.forget(socket);
        return 0;
    }
    const std::uint32_t events = ((what & CURL_POLL_IN) != 0 ? std::uint32_t{EPOLLIN} : 0U) |
                                 ((what & CURL_POLL_OUT) != 0 ? std::uint32_t{EPOLLOUT} : 0U);
    transfers->loop_.watch(socket, events, [transfers, socket](std::uint32_t happened) {
        transfers->act(socket, ((happened & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                                   ((happened & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                                   ((happened & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0));
    });
    return 0;
}

int Transfers::onTimer(CURLM* /*multi*/, long delay, void* self) {
    auto* transfers = static_cast<Transfers*>(self);
    transfers->loop_.cancel(transfers->timer_);
    if (delay >= 0)
        transfers->timer_ = transfers->loop_.after(std::chrono::milliseconds(delay), [transfers] {
            transfers->timer_ = 0;
            transfers->act(CURL_SOCKET_TIMEOUT, 0);
        });
    return 0;
}

void Transfers::act(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
    callDone();
}

void Transfers::callDone() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        const CURLcode result = message->data.result;
        const auto found = done_.find(message->easy_handle);
        if (found == done_.end())
            continue;
        const Done done = std::exchange(found->second, nullptr);
        if (done)
            done(result);
    }
}

} // namespace gateway
