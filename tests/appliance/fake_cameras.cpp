#include "tests/appliance/fake_cameras.h"

#include <arpa/inet.h>
#include <array>
#include <cstdint>
#include <netinet/in.h>
#include <random>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char* group = "239.255.255.250";
constexpr const char* ownAddress = "10.77.0.1"; // the test's, in the network that is searched
constexpr std::uint32_t firstCamera = 0x0a500001;

std::string textOf(std::uint32_t address) {
    const in_addr in{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &in, text.data(), text.size());
    return text.data();
}

int socketAt(std::uint32_t address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(address);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void sendTo(int fd, const std::string& text, const sockaddr_in& client) {
    [[maybe_unused]] const ssize_t sent =
        sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&client), sizeof client);
}

std::string match(const std::string& messageId, const std::string& host) {
    return "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" "
           "xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\"><e:Header><w:RelatesTo>" +
           messageId +
           "</w:RelatesTo></e:Header><e:Body><ProbeMatches "
           "xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
           "<ProbeMatch><w:EndpointReference><w:Address>urn:uuid:" +
           host +
           "</w:Address></w:EndpointReference><Types>dn:NetworkVideoTransmitter</Types><XAddrs>http://" +
           host + "/onvif/device_service</XAddrs></ProbeMatch></ProbeMatches></e:Body></e:Envelope>";
}

} // namespace

FakeCameras::FakeCameras(std::size_t count) : cameras_(count) {
    listen();
}

FakeCameras::FakeCameras(Flood flood) : garbage_(flood.datagrams) {
    listen();
}

FakeCameras::~FakeCameras() {
    thread_.request_stop();
    thread_.join();
    close(fd_);
}

void FakeCameras::listen() {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    const timeval wait{0, 100000};
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(3702);
    own.sin_addr.s_addr = inet_addr(group);
    ip_mreqn joined{};
    joined.imr_multiaddr.s_addr = inet_addr(group);
    joined.imr_address.s_addr = inet_addr(ownAddress);
    if (setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) != 0 ||
        bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &joined, sizeof joined) != 0) {
        throw std::runtime_error("no socket for searches");
    }
    thread_ = std::jthread([this](const std::stop_token& stop) {
        std::string bytes(20000, '\0');
        while (!stop.stop_requested()) {
            sockaddr_in client{};
            socklen_t length = sizeof client;
            const ssize_t size =
                recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&client), &length);
            if (size > 0) {
                answer(bytes.substr(0, static_cast<std::size_t>(size)), client);
            }
        }
    });
}

void FakeCameras::answer(const std::string& probe, const sockaddr_in& client) const {
    const std::size_t begin = probe.find("urn:uuid:");
    if (begin == std::string::npos) {
        return;
    }
    const std::string messageId = probe.substr(begin, probe.find('<', begin) - begin);
    sendCameras(messageId, client);
    sendGarbage(messageId, client);
}

void FakeCameras::sendCameras(const std::string& messageId, const sockaddr_in& client) const {
    for (std::uint32_t i = 0; i < cameras_; ++i) {
        const int fd = socketAt(firstCamera + i);
        if (fd >= 0) {
            sendTo(fd, match(messageId, textOf(firstCamera + i)), client);
            close(fd);
        }
    }
}

void FakeCameras::sendGarbage(const std::string& messageId, const sockaddr_in& client) const {
    const int fd = socketAt(0);
    std::mt19937 random(4711);
    for (std::size_t i = 0; i < garbage_; ++i) {
        std::string text = match(messageId, "10.80.0.1");
        if (i % 2 == 0) {
            text.resize(text.size() / 2);
        } else {
            for (char& byte : text) {
                byte = static_cast<char>(random());
            }
        }
        sendTo(fd, text, client);
    }
    close(fd);
}
