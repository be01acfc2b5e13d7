#include "tests/mqtt/old_broker.h"

#include <array>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace mqtt_test {
namespace {

constexpr int step = 20; // milliseconds between looks at the end

sockaddr_in addressOf(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool readable(int socket) {
    pollfd one{socket, POLLIN, 0};
    return poll(&one, 1, step) > 0;
}

// Passes on what has arrived; false at the end of the connection.
bool pass(int from, int to) {
    std::array<char, 4096> part{};
    const ssize_t count = recv(from, part.data(), part.size(), 0);
    return count > 0 && send(to, part.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) == count;
}

// The protocol level of a CONNECT packet, which has a length of one or two bytes here; 0: the packet is not whole.
int levelOf(const std::string& packet) {
    const std::size_t name = packet.find("MQTT");
    return name == std::string::npos || packet.size() <= name + 4 ? 0 : packet[name + 4];
}

} // namespace

OldBroker::OldBroker(int brokerPort, Refusal refusal)
    : brokerPort_(brokerPort), refusal_(refusal), socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = addressOf(0);
    socklen_t length = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket_, any, length) != 0 || listen(socket_, 8) != 0 ||
        getsockname(socket_, any, &length) != 0) {
        throw std::runtime_error("no port for the old broker");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { accept(); });
}

OldBroker::~OldBroker() {
    ending_ = true;
    thread_.join();
    for (std::thread& client : clients_) {
        client.join();
    }
    close(socket_);
}

void OldBroker::accept() {
    while (!ending_) {
        if (readable(socket_)) {
            const int client = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
            clients_.emplace_back([this, client] { serve(client); });
        }
    }
}

void OldBroker::serve(int client) {
    std::string begin;
    while (!ending_ && levelOf(begin) == 0) {
        std::array<char, 512> part{};
        const ssize_t count = readable(client) ? recv(client, part.data(), part.size(), 0) : 0;
        begin.append(part.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    }
    if (levelOf(begin) == 5) {
        ++refused_;
        // CONNACK: "unacceptable protocol version" of 3.1.1, or "unsupported protocol version" of 5, without properties.
        const std::string answer = refusal_ == Refusal::OfVersion3 ? std::string("\x20\x02\x00\x01", 4)
                                                                   : std::string("\x20\x03\x00\x84\x00", 5);
        send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    } else {
        ++accepted_;
        relay(client, begin);
    }
    close(client);
}

void OldBroker::relay(int client, const std::string& begin) {
    const sockaddr_in address = addressOf(brokerPort_);
    const int broker = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool goesOn =
        connect(broker, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(broker, begin.data(), begin.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(begin.size());
    while (goesOn && !ending_) {
        std::array<pollfd, 2> both{{{client, POLLIN, 0}, {broker, POLLIN, 0}}};
        poll(both.data(), both.size(), step);
        goesOn =
            (both[0].revents == 0 || pass(client, broker)) && (both[1].revents == 0 || pass(broker, client));
    }
    close(broker);
}

} // namespace mqtt_test
