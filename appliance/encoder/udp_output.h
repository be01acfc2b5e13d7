// Packets of RTP and RTCP to a multicast group.
#pragma once

#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <vector>

// Two sockets on neighbouring ports, the first one even, of `localAddress`. What is lost is lost: nobody tells who
// listens.
class UdpOutput {
public:
    // Null when no ports are free, or an address is none. `port` and the port above it are the receivers'.
    static std::unique_ptr<UdpOutput> open(const std::string& localAddress, const std::string& group,
                                           std::uint16_t port);
    ~UdpOutput();
    UdpOutput(const UdpOutput&) = delete;
    UdpOutput& operator=(const UdpOutput&) = delete;

    void sendPackets(const std::vector<std::string>& packets) const;
    void sendReport(std::string_view report) const;

private:
    UdpOutput() = default;
    bool bindPair(const std::string& localAddress);

    int dataFd_ = -1;
    int controlFd_ = -1;
    sockaddr_in data_{};
    sockaddr_in control_{};
};
