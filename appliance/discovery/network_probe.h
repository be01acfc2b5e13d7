// Searches the local network for devices: sends probes to the multicast group and collects the answers that fit.
#pragma once

#include "appliance/discovery/messages/probe.h"
#include "appliance/discovery/web_address.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

constexpr std::size_t maxDevices = 500;
constexpr std::size_t maxDevicesOfHost = 64;

// One device that answered.
struct FoundDevice {
    ProbeMatch match;
    std::uint32_t sender = 0; // IPv4, host byte order
    LocalNetwork network;     // where the answer came in
};

struct ProbeResult {
    std::vector<FoundDevice> devices;  // each device once, however often it answered
    std::size_t unfit = 0;             // answers that were no answers to our probes
    bool tooMany = false;              // more than maxDevices, or more than maxDevicesOfHost of one host
    std::vector<std::string> mistakes; // networks that could not be searched
};

// Sends six probes on each network during the first part of `time`, and listens until its end.
ProbeResult probeNetworks(const std::vector<LocalNetwork>& networks, std::chrono::milliseconds time);

// Collects answers; also for tests.
class AnswerCollector {
public:
    explicit AnswerCollector(std::vector<std::string> messageIds) : messageIds_(std::move(messageIds)) {}
    void take(std::string_view datagram, std::uint32_t sender, const LocalNetwork& network);
    ProbeResult& result() { return result_; }

private:
    void add(ProbeMatch match, std::uint32_t sender, const LocalNetwork& network);

    std::vector<std::string> messageIds_;
    ProbeResult result_;
};
