// Session descriptions.
#pragma once

#include "appliance/encoder/access_unit.h"

#include <cstdint>
#include <string>

// Of an RTSP stream: `key` is one of its key pictures.
std::string describeRtsp(Codec codec, const AccessUnit& key, const std::string& name,
                         const std::string& localAddress, const std::string& track, int fps);

struct MulticastPlace {
    std::string group;
    std::uint16_t port;
};

// Of an MPEG-2 multicast; a null `audio` is a stream without sound.
std::string describeMulticast(const std::string& name, const std::string& localAddress,
                              const MulticastPlace& video, const MulticastPlace* audio);
