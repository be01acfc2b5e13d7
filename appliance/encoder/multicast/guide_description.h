// The session description at /view/sdp/guide.sdp.
#pragma once

#include "appliance/encoder/multicast/multicast_place.h"

#include <string>

// Describes an MPEG-2 multicast; `audio` is null for a stream without sound.
std::string describeMulticast(const std::string& name, const std::string& localAddress,
                              const MulticastPlace& video, const MulticastPlace* audio);
