// Following the decoder: what changed between two looks at it.
#pragma once

#include "appliance/ctl/decoder_status.h"

#include <iosfwd>
#include <string>
#include <vector>

struct Change {
    std::string what;  // "connected", "mode", "source", "text 0", "LED", "picture"
    std::string value; // as it is now
};

// Every value that differs; frames are the business of FrameRate.
std::vector<Change> changesBetween(const DecoderStatus& before, const DecoderStatus& now);

// All values, as the first lines of a watch.
std::vector<Change> everything(const DecoderStatus& now);

// Frames per second over windows of one second, announced only when it changes noticeably: by a tenth and at
// least half a frame a second.
class FrameRate {
public:
    // `number` frames were drawn until `time` (microseconds). True when there is a new rate to announce.
    bool add(std::uint64_t number, std::int64_t time);
    double value() const { return announced_; }

private:
    bool started_ = false;
    std::uint64_t windowNumber_ = 0;
    std::int64_t windowTime_ = 0;
    double announced_ = -1;
};

// Prints changes until `seconds` are over (0: for ever) or SIGINT or SIGTERM comes.
void watchDecoder(double seconds, bool json, std::ostream& out);
