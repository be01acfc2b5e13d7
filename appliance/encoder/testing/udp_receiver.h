// UDP sockets that receive what the encoder sends.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

class UdpReceiver {
public:
    // Binds to 127.0.0.1 or, with a group, to that multicast group on all interfaces. See isBound().
    explicit UdpReceiver(std::uint16_t port, const char* group = nullptr);
    ~UdpReceiver();
    UdpReceiver(const UdpReceiver&) = delete;
    UdpReceiver& operator=(const UdpReceiver&) = delete;

    bool isBound() const { return fd_ >= 0; }
    // The next packet; "" if none came in time.
    std::string receive(int milliseconds = 10000) const;
    // Receives and drops packets that are still on their way. False if they do not stop within ten seconds.
    bool fallsSilent() const;

private:
    int fd_;
};

// Two receivers on neighbouring free ports of 127.0.0.1, for RTP and RTCP. The first port is even.
class UdpPortPair {
public:
    UdpPortPair();

    std::uint16_t port() const { return port_; }
    std::string text() const { return std::to_string(port_) + "-" + std::to_string(port_ + 1); }
    const UdpReceiver& data() const { return *receivers_[0]; }
    const UdpReceiver& control() const { return *receivers_[1]; }

private:
    std::array<std::optional<UdpReceiver>, 2> receivers_;
    std::uint16_t port_ = 0;
};
