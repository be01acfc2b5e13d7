#include "bench/picture_server.h"

#include "appliance/players/testing/test_pictures.h"

#include <libcommon/clock.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr std::int64_t pictureUs = 40'000;
constexpr int lookMs = 100;

bool sendAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

} // namespace

PictureServer::PictureServer(std::vector<std::string> pictures) : sent_(pictures.size()) {
    for (const std::string& picture : pictures)
        parts_.push_back(player::part(picture));
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener_, 4) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no port on 127.0.0.1");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

PictureServer::~PictureServer() {
    end_ = true;
    thread_.join();
    close(listener_);
}

std::int64_t PictureServer::sentAt(std::size_t index) const {
    const std::lock_guard guard(lock_);
    return sent_.at(index);
}

void PictureServer::serve() {
    while (!end_) {
        pollfd waited{listener_, POLLIN, 0};
        if (poll(&waited, 1, lookMs) <= 0)
            continue;
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        sendTo(client);
        close(client);
    }
}

void PictureServer::sendTo(int client) {
    std::string request(4096, '\0');
    if (recv(client, request.data(), request.size(), 0) <= 0 || !sendAll(client, player::multipartHeader))
        return;
    std::int64_t due = gettimeusec();
    for (std::size_t number = 0; !end_; ++number) {
        const std::size_t index = number % parts_.size();
        {
            const std::lock_guard guard(lock_);
            sent_[index] = gettimeusec();
        }
        if (!sendAll(client, parts_[index]))
            return;
        due += pictureUs;
        const std::int64_t left = due - gettimeusec();
        if (left > 0)
            usleep(static_cast<useconds_t>(left));
    }
}

} // namespace bench
