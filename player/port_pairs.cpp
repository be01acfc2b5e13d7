#include "player/port_pairs.h"

#include <cstdint>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct PortRange {
    int start;
    int step;
    int upperBound;
    int counter;
};

// Process-wide state: the next candidate of each range. Never reset, so that successive players get different ports
// even when the earlier ones are free again. Main thread.
PortRange playerPorts{20000, 4, 40000, 20000};
PortRange probePorts{10000, 2, 12000, 10000};

constexpr int maxTries = 256;

bool isFree(int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1)
        return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int result = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(fd);
    return result == 0;
}

int nextCandidate(PortRange& range) {
    const int candidate = range.counter;
    range.counter += range.step;
    if (range.counter > range.upperBound)
        range.counter = range.start;
    return candidate;
}

int allocatePair(PortRange& range) {
    for (int i = 0; i < maxTries; ++i) {
        const int candidate = nextCandidate(range);
        if (isFree(candidate) && isFree(candidate + 1))
            return candidate;
    }
    return -1;
}

} // namespace

int allocatePlayerPortPair() {
    return allocatePair(playerPorts);
}

int allocateProbePortPair() {
    return allocatePair(probePorts);
}
