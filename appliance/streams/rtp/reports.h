// Reports between sender and receiver of a stream (RTCP).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace streams {

struct ReceivedSoFar {
    std::uint32_t sender = 0;  // of the newest packet
    std::uint32_t highest = 0; // its extended sequence number
    std::uint64_t packets = 0; // 0: nothing has come, and the other values mean nothing
};

// A receiver report and our name. `reporter` is our own synchronisation source.
std::string receiverReport(std::uint32_t reporter, const ReceivedSoFar& received);

// Whether the sender says that it ends the stream.
bool hasGoodbye(std::string_view packet);

} // namespace streams
