// Where a stream's packets go: over UDP to one client or to a group, or within a TCP connection.
#pragma once

#include "appliance/encoder/connection.h"

#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <vector>

class MediaOutput {
public:
    MediaOutput() = default;
    virtual ~MediaOutput() = default;
    MediaOutput(const MediaOutput&) = delete;
    MediaOutput& operator=(const MediaOutput&) = delete;

    // The RTP packets of one picture, or an RTCP report. False when it makes no sense to go on.
    virtual bool sendPackets(const std::vector<std::string>& packets) = 0;
    virtual bool sendReport(std::string_view report) = 0;
};

// Two sockets on neighbouring ports, the first one even, of `localAddress`. What is lost is lost: a client
// that is not there (yet) is no mistake.
class UdpOutput : public MediaOutput {
public:
    // Null when no ports are free, or an address is none. `port` and the port above it are the receiver's.
    static std::unique_ptr<UdpOutput> open(const std::string& localAddress, const std::string& receiver,
                                           std::uint16_t port);
    ~UdpOutput() override;

    std::uint16_t localPort() const { return localPort_; }
    bool sendPackets(const std::vector<std::string>& packets) override;
    bool sendReport(std::string_view report) override;

private:
    UdpOutput() = default;
    bool bindPair(const std::string& localAddress);

    int dataFd_ = -1;
    int controlFd_ = -1;
    std::uint16_t localPort_ = 0;
    sockaddr_in data_{};
    sockaddr_in control_{};
};

// Packets framed with "$" and two channel numbers among the answers of an RTSP connection.
class InterleavedOutput : public MediaOutput {
public:
    // The connection must outlive it.
    InterleavedOutput(Connection& connection, int dataChannel, int controlChannel)
        : connection_(connection), dataChannel_(dataChannel), controlChannel_(controlChannel) {}
    bool sendPackets(const std::vector<std::string>& packets) override;
    bool sendReport(std::string_view report) override;

private:
    Connection& connection_;
    const int dataChannel_;
    const int controlChannel_;
};
