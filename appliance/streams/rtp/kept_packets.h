// The packets of a stream since its last key picture, so that a player that joins gets a picture at once.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace streams {

// A packet that several players share. Never changes.
using Packet = std::shared_ptr<const std::string>;

// For one thread.
class KeptPackets {
public:
    // Keeps at most `limit` bytes. A longer group of pictures is not kept at all: its end is useless without its start.
    explicit KeptPackets(std::size_t limit) : limit_(limit) {}

    // Adds a packet; one that begins a key picture replaces everything before it.
    void add(const Packet& packet, bool beginsKeyPicture);
    void clear();

    // In the order of their arrival, beginning with a key picture; empty before the first one and after a group of
    // pictures that was too long.
    const std::vector<Packet>& packets() const { return packets_; }
    std::size_t bytes() const { return bytes_; }

private:
    std::size_t limit_;
    std::size_t bytes_ = 0;
    bool keeping_ = false; // a key picture has begun and the limit has not been reached since
    std::vector<Packet> packets_;
};

} // namespace streams
