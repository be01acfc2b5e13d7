// Reads the network's state from the kernel and waits for its changes (rtnetlink).
//
// It doesn't follow the single changes: a notice only says that something changed, and then everything is read anew.
// The lists are short, and so a lost notice does no harm: the kernel reports the loss, which is a notice, too.
// One thread.
#pragma once

#include "appliance/network/network_state.h"

#include <cstdint>

namespace network {

class NetworkReader {
public:
    NetworkReader() = default;
    NetworkReader(const NetworkReader&) = delete;
    NetworkReader& operator=(const NetworkReader&) = delete;
    ~NetworkReader();

    // Subscribes to the notices. False with errno. Called once, before the others.
    bool open();

    // Replaces `state` by the present one. False with errno; `state` is then unchanged. Takes at most about five
    // seconds.
    bool read(NetworkState& state);

    // Becomes readable when a notice is there. Valid for the object's life.
    int noticeFd() const { return notices_; }

    // Drops the notices that are there; read() then sees what they are about. True if the kernel had to drop some
    // itself, because they were not taken in time.
    bool dropNotices();

private:
    bool readOnce(NetworkState& state, bool& changed);
    bool readList(int kind, NetworkState& state, bool& changed);

    int notices_ = -1;
    int requests_ = -1;
    std::uint32_t sequence_ = 0; // of the last request
};

} // namespace network
