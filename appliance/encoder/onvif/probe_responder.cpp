#include "appliance/encoder/onvif/probe_responder.h"

#include "appliance/discovery/local_network.h"
#include "appliance/discovery/messages/probe.h"
#include "appliance/encoder/onvif/probe_answer.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t maxProbeBytes = 16UL * 1024;
constexpr const char* everyAddress = "0.0.0.0";
constexpr const char* foreignHost = "203.0.113.9"; // an address for documentation, in no network

sockaddr_in placeOf(std::uint32_t address, std::uint16_t port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(address);
    return place;
}

// A socket that sends to the client from `address`, or from the address that the kernel chooses.
int socketTo(const sockaddr_in& client, const std::string& address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in own = placeOf(ipv4Of(address).value_or(0), 0);
    if (fd >= 0 && (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
                    connect(fd, reinterpret_cast<const sockaddr*>(&client), sizeof client) != 0)) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string ownAddress(int fd) {
    sockaddr_in own{};
    socklen_t length = sizeof own;
    getsockname(fd, reinterpret_cast<sockaddr*>(&own), &length);
    return ipv4Text(ntohl(own.sin_addr.s_addr));
}

std::string garbage() {
    std::mt19937 random(std::random_device{}());
    std::string bytes(500, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

} // namespace

ProbeResponder::ProbeResponder(const OnvifFacts& facts, const FaultSwitch& faults, std::string address)
    : facts_(facts), faults_(faults), address_(std::move(address)) {}

ProbeResponder::~ProbeResponder() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(wakeFd_, &one, sizeof one);
        thread_.join();
    }
    for (const int fd : {fd_, wakeFd_}) {
        if (fd >= 0)
            close(fd);
    }
}

// On the interface of the address, or on every interface.
bool ProbeResponder::join() const {
    bool joined = false;
    std::vector<LocalNetwork> networks;
    if (address_ == everyAddress)
        networks = localNetworks("");
    else
        networks.push_back({{}, 0, ipv4Of(address_).value_or(0), 0});
    for (const LocalNetwork& network : networks) {
        ip_mreqn group{};
        group.imr_multiaddr.s_addr = inet_addr(discoveryGroup);
        group.imr_address.s_addr = htonl(network.address);
        group.imr_ifindex = static_cast<int>(network.interfaceIndex);
        joined = setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0 ||
                 errno == EADDRINUSE || joined;
    }
    return joined;
}

std::string ProbeResponder::start() {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    const int on = 1;
    const int off = 0;
    const sockaddr_in own = placeOf(ntohl(inet_addr(discoveryGroup)), discoveryPort);
    // Several encoders of a machine share the port; each gets only what comes in where it has joined.
    const bool ready = fd_ >= 0 && wakeFd_ >= 0 &&
                       setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                       setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off) == 0 &&
                       bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 && join();
    if (!ready)
        return std::string("--onvif: cannot listen for searches: ") + std::strerror(errno);
    thread_ = std::thread(&ProbeResponder::answerProbes, this);
    return {};
}

void ProbeResponder::answerProbes() {
    std::array<pollfd, 2> waits{{{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}}};
    while ((waits[1].revents & POLLIN) == 0) {
        if (poll(waits.data(), waits.size(), -1) > 0 && waits[0].revents != 0)
            answerOne();
    }
}

void ProbeResponder::answerOne() {
    std::array<char, maxProbeBytes> bytes{};
    sockaddr_in client{};
    socklen_t length = sizeof client;
    const ssize_t size =
        recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&client), &length);
    if (size <= 0)
        return;
    const std::optional<std::string> id = probeForUs({bytes.data(), static_cast<std::size_t>(size)}, facts_);
    if (id)
        answer(*id, ntohl(client.sin_addr.s_addr), ntohs(client.sin_port));
}

void ProbeResponder::answer(const std::string& messageId, std::uint32_t client,
                            std::uint16_t clientPort) const {
    const FaultSet faults = faults_.current();
    if (faults.has(Fault::Refuse) || faults.has(Fault::SilentSearch))
        return;
    const int fd = socketTo(placeOf(client, clientPort), address_);
    if (fd < 0)
        return;
    const std::string host = faults.has(Fault::ForeignAddress) ? foreignHost : ownAddress(fd);
    const std::string text =
        faults.has(Fault::ProbeGarbage)
            ? garbage()
            : probeAnswer(messageId, facts_, OnvifPlace{host, facts_.port}.url("http", onvifDevicePath));
    [[maybe_unused]] const ssize_t sent = send(fd, text.data(), text.size(), 0);
    close(fd);
}
