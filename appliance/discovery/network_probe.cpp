#include "appliance/discovery/network_probe.h"

#include "appliance/discovery/messages/security.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int rounds = 3; // each sends both probes: datagrams get lost
constexpr std::size_t maxDatagramBytes = 32UL * 1024;
constexpr int receiveBufferBytes = 1024 * 1024; // 500 devices answer within half a second
constexpr unsigned char timeToLive = 1;         // the local network only

std::vector<std::string> newMessageIds() {
    std::vector<std::string> ids(static_cast<std::size_t>(rounds) * 2);
    std::ranges::generate(ids, randomUuid);
    return ids;
}

sockaddr_in placeOf(std::uint32_t address, unsigned short port) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(address);
    return place;
}

// A socket in one network.
class Searcher {
public:
    explicit Searcher(LocalNetwork network) : network_(std::move(network)) {
        fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const sockaddr_in own = placeOf(network_.address, 0);
        ip_mreqn through{};
        through.imr_ifindex = static_cast<int>(network_.interfaceIndex);
        through.imr_address.s_addr = htonl(network_.address);
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
        const bool ready =
            fd_ >= 0 && setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_IF, &through, sizeof through) == 0 &&
            setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_TTL, &timeToLive, sizeof timeToLive) == 0 &&
            bind(fd_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
        if (!ready) {
            mistake_ = std::strerror(errno);
        }
    }
    ~Searcher() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Searcher(Searcher&& other) noexcept
        : network_(std::move(other.network_)), fd_(std::exchange(other.fd_, -1)),
          mistake_(std::move(other.mistake_)) {}
    Searcher& operator=(Searcher&&) = delete;

    void send(const std::string& message) {
        const sockaddr_in group = placeOf(ntohl(inet_addr(discoveryGroup)), discoveryPort);
        if (mistake_.empty() && sendto(fd_, message.data(), message.size(), 0,
                                       reinterpret_cast<const sockaddr*>(&group), sizeof group) < 0) {
            mistake_ = std::strerror(errno);
        }
    }

    // Passes on one datagram, if there is one. A bounded number of calls keeps the caller in time.
    void receive(AnswerCollector& collector) const {
        std::array<char, maxDatagramBytes + 1> bytes; // NOLINT: filled by recvfrom
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t size =
            recvfrom(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (size >= 0) {
            collector.take({bytes.data(), static_cast<std::size_t>(size)}, ntohl(from.sin_addr.s_addr),
                           network_);
        }
    }

    const LocalNetwork& network() const { return network_; }
    const std::string& mistake() const { return mistake_; }
    int fd() const { return fd_; }

private:
    LocalNetwork network_;
    int fd_ = -1;
    std::string mistake_;
};

void listenUntil(Clock::time_point end, const std::vector<Searcher>& searchers, AnswerCollector& collector) {
    std::vector<pollfd> waits;
    for (const Searcher& searcher : searchers) {
        waits.push_back({searcher.fd(), POLLIN, 0});
    }
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0 ||
            (poll(waits.data(), waits.size(), static_cast<int>(left.count())) < 0 && errno != EINTR)) {
            return;
        }
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if ((waits[i].revents & (POLLIN | POLLERR)) != 0) {
                searchers[i].receive(collector);
            }
        }
    }
}

bool isSameDevice(const FoundDevice& device, const ProbeMatch& match, std::uint32_t sender) {
    if (!device.match.endpoint.empty() || !match.endpoint.empty()) {
        return device.match.endpoint == match.endpoint;
    }
    return device.sender == sender && device.match.addresses == match.addresses;
}

} // namespace

void AnswerCollector::take(std::string_view datagram, std::uint32_t sender, const LocalNetwork& network) {
    std::vector<ProbeMatch> matches;
    // Without one of our ids in it the text is not worth parsing: a flood of datagrams must stay cheap.
    const bool ours =
        datagram.size() <= maxDatagramBytes && std::ranges::any_of(messageIds_, [&](const std::string& id) {
            return datagram.find(id) != std::string_view::npos;
        });
    if (ours) {
        matches = readProbeMatches(datagram, messageIds_);
    }
    if (matches.empty()) {
        ++result_.unfit;
    }
    for (ProbeMatch& match : matches) {
        add(std::move(match), sender, network);
    }
}

void AnswerCollector::add(ProbeMatch match, std::uint32_t sender, const LocalNetwork& network) {
    std::size_t ofHost = 0;
    for (const FoundDevice& device : result_.devices) {
        if (isSameDevice(device, match, sender)) {
            return;
        }
        ofHost += device.sender == sender ? 1U : 0U;
    }
    if (result_.devices.size() == maxDevices || ofHost == maxDevicesOfHost) {
        result_.tooMany = true;
        return;
    }
    result_.devices.push_back({std::move(match), sender, network});
}

ProbeResult probeNetworks(const std::vector<LocalNetwork>& networks, std::chrono::milliseconds time) {
    const std::vector<std::string> ids = newMessageIds();
    AnswerCollector collector(ids);
    std::vector<Searcher> searchers;
    searchers.reserve(networks.size());
    for (const LocalNetwork& network : networks) {
        searchers.emplace_back(network);
    }
    const Clock::time_point start = Clock::now();
    for (std::size_t round = 0; round < rounds; ++round) {
        for (Searcher& searcher : searchers) {
            searcher.send(probeMessage(ids[2 * round], Wanted::VideoTransmitter));
            searcher.send(probeMessage(ids[2 * round + 1], Wanted::Device));
        }
        // A device answers up to half a second after a probe, so the last round gets more than half of the time.
        listenUntil(round + 1 < rounds ? start + time * static_cast<long>(round + 1) / 6 : start + time,
                    searchers, collector);
    }
    for (const Searcher& searcher : searchers) {
        if (!searcher.mistake().empty()) {
            collector.result().mistakes.push_back(searcher.network().interface + ": " + searcher.mistake());
        }
    }
    return std::move(collector.result());
}
