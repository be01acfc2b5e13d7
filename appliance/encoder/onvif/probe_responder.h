// Answers the probes of clients that search the network for ONVIF devices.
#pragma once

#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/onvif/onvif_facts.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

class ProbeResponder {
public:
    // All must outlive it. `address` is the local address to answer from; "0.0.0.0": every interface.
    ProbeResponder(const OnvifFacts& facts, const FaultSwitch& faults, std::string address);
    ~ProbeResponder(); // ends the thread
    ProbeResponder(const ProbeResponder&) = delete;
    ProbeResponder& operator=(const ProbeResponder&) = delete;

    // Joins the multicast group and begins to answer. Returns an error text, or "". Call it once.
    std::string start();

private:
    bool join() const;
    void answerProbes();
    void answerOne();
    void answer(const std::string& messageId, std::uint32_t client, std::uint16_t clientPort) const;

    const OnvifFacts& facts_;
    const FaultSwitch& faults_;
    const std::string address_;
    int fd_ = -1;
    int wakeFd_ = -1;
    std::thread thread_;
};
