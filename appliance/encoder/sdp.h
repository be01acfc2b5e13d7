// The session description of the SDP guide.
#pragma once

#include <cstdint>
#include <string>

struct MulticastPlace {
    std::string group;
    std::uint16_t port;
};

// Of an MPEG-2 multicast; a null `audio` is a stream without sound.
std::string describeMulticast(const std::string& name, const std::string& localAddress,
                              const MulticastPlace& video, const MulticastPlace* audio);
