#include "appliance/encoder/udp_output.h"

#include <arpa/inet.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int attempts = 100;
constexpr unsigned firstPort = 20000;
constexpr unsigned lastPort = 60000;

int boundSocket(const std::string& address, std::uint16_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1)
        return -1;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0) {
        // Packets for a group leave by the interface that the encoder listens on, and reach this machine,
        // too.
        setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &local.sin_addr, sizeof local.sin_addr);
        return fd;
    }
    if (fd >= 0)
        close(fd);
    return -1;
}

} // namespace

std::unique_ptr<UdpOutput> UdpOutput::open(const std::string& localAddress, const std::string& group,
                                           std::uint16_t port) {
    std::unique_ptr<UdpOutput> output(new UdpOutput);
    output->data_.sin_family = AF_INET;
    output->data_.sin_port = htons(port);
    if (inet_pton(AF_INET, group.c_str(), &output->data_.sin_addr) != 1 || !output->bindPair(localAddress))
        return nullptr;
    output->control_ = output->data_;
    output->control_.sin_port = htons(static_cast<std::uint16_t>(port + 1));
    return output;
}

bool UdpOutput::bindPair(const std::string& localAddress) {
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<unsigned> pairs(firstPort / 2, lastPort / 2);
    for (int i = 0; i < attempts; ++i) {
        const auto port = static_cast<std::uint16_t>(pairs(random) * 2);
        dataFd_ = boundSocket(localAddress, port);
        if (dataFd_ < 0)
            continue;
        controlFd_ = boundSocket(localAddress, static_cast<std::uint16_t>(port + 1));
        if (controlFd_ >= 0)
            return true;
        close(dataFd_);
        dataFd_ = -1;
    }
    return false;
}

UdpOutput::~UdpOutput() {
    if (dataFd_ >= 0)
        close(dataFd_);
    if (controlFd_ >= 0)
        close(controlFd_);
}

void UdpOutput::sendPackets(const std::vector<std::string>& packets) const {
    for (const std::string& packet : packets)
        sendto(dataFd_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&data_),
               sizeof data_);
}

void UdpOutput::sendReport(std::string_view report) const {
    sendto(controlFd_, report.data(), report.size(), 0, reinterpret_cast<const sockaddr*>(&control_),
           sizeof control_);
}
