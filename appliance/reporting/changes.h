// What changed between two looks at the decoder.
#pragma once

#include "appliance/reporting/decoder_status.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct Change {
    std::string what; // "connected", "mode", "source", "text 0", "LED", "picture"
    std::string text; // as it is now, in words; "" for nothing
    std::string key;  // `what` for programs: "text" for every line
    nlohmann::json value;
};

// Local time with its offset from UTC: "2026-11-21T09:21:42.087+01:00".
std::string isoTime();

// Every value that differs. Frames are left out: FrameRate handles them.
std::vector<Change> changesBetween(const DecoderStatus& before, const DecoderStatus& now);

// All values, as the first lines of a watch.
std::vector<Change> everything(const DecoderStatus& now);

// {"time", "what", "value"} on one line, with the date and time in ISO 8601.
std::string changeJsonLine(const Change& change, const std::string& time);

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

// The change that announces a rate, in frames per second.
Change rateChange(double rate);
