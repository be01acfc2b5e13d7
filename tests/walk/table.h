// The walk's own table of the state machine: which state may follow which, and why. It is written from the
// description of the decoder's behaviour, not from the supervisor's code, so that it can contradict the code.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace walk {

struct Arrow {
    std::string from;
    std::string to;
    std::string why;
    bool reachable = true; // false: a walk cannot cause it
};

const std::vector<Arrow>& arrows();
bool isArrow(const std::string& from, const std::string& to);

// States in which the machine waits for events from outside as long as none comes.
bool isResting(const std::string& state);

using Coverage = std::set<std::pair<std::string, std::string>>;

// Two lines of numbers and the arrows that were not seen.
std::string describe(const Coverage& seen);

} // namespace walk
