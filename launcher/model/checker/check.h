// Runs the machine through a list of steps and looks at it after every turn.
//
// What must always hold:
//   arrows       every turn is a declared arrow, moved by what the arrow says
//   players      a pending pid exists exactly while a player is launched or switched to; the current pid and
//   the
//                current source are set and cleared together; never more than two players are alive - but for
//                one that SWITCH_PLAYER took for gone because an unknown child exited, and that is on its way
//                out
//   status       "Decoder.Info.CurrentSource" is the current source; a single launch names its source early
//   exits        every exit of a player that the machine takes is classified once, for the source it showed
//   modes        AUTO states in automatic mode, MANUAL states in manual mode; paused in automatic mode alone,
//   and as
//                long as the pause lasts
//   events       what a state takes without acting on it is queued again; a lock waits for DISCONNECTED
//   timers       a state that waits for a timer waits for the one armed last
//   alarms       no alarm replaces another before its display time is over
//   progress     the machine never turns round and round without waiting; and from wherever a list has led
//   it,
//                being told to disconnect brings it to DISCONNECTED, and being told to connect to a picture
#pragma once

#include "launcher/model/checker/step.h"

#include <functional>
#include <string>
#include <vector>

namespace checker {

class World;

// One more thing that must hold after every turn: "" or what is wrong.
using Invariant = std::function<std::string()>;

// What all runs of a process have seen.
struct Coverage {
    std::vector<long> walked; // per row of transitions()
    long turns = 0;
    long steps = 0;
    long runs = 0;
};
extern Coverage coverage;

// Runs the list from the start of the machine. "" when everything held, else what did not, with state and
// step.
std::string check(const Steps& steps, const Invariant& extra = nullptr);

} // namespace checker
