// Whether a tile of the wall is marked, and with which words. Pure functions: any thread.
#pragma once

#include <cstdint>
#include <string>

namespace screen {

// A source that sends a picture every few seconds is no fault.
inline constexpr std::int64_t stoppedAfterUs = 5'000'000;

struct TileHealth {
    bool supervisor = true; // one runs
    bool visible = false;   // a picture is on the screen; otherwise it is black, on purpose
    std::int64_t ageUs = 0; // of that picture
};

// The mark's text: "No decoder runs here, last picture 12 s ago", "No new picture for 12 s"; "" for a tile that is as it
// should be.
std::string stoppedMark(const TileHealth& health);

// "12 s", "3 min", "2 h 5 min", "4 days": what an operator wants to know of an age.
std::string ageText(std::int64_t us);

} // namespace screen
