// What a source's status values say about its camera's stream.
#pragma once

#include "appliance/gateway/cameras/camera.h"

#include <cstdint>
#include <map>
#include <string>

namespace gateway {

// With one digit behind the point, and none for whole numbers.
std::string oneDigit(double value);

// Turns reports of one camera, taken one after the other, into status values. Pure; for one thread.
class StreamStatus {
public:
    using Values = std::map<std::string, std::string>; // by key

    // The values at the time `now` in microseconds. BitRate (kbit/s) and FrameRate (pictures/s) are those of the time
    // since the report before; they are left out in the first report of a connection, and empty without one. The others
    // (Codec, Encoded, Resolution, KeyInterval in seconds, Transport) are left out while they are unknown, so that those of the
    // last connection stay.
    Values update(const CameraReport& report, std::int64_t now);

private:
    void addRates(const CameraReport& report, std::int64_t now, Values& values);

    bool open_ = false; // in the report before
    std::int64_t at_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t pictures_ = 0;
};

} // namespace gateway
