// Runs the machine through a list of steps and checks it after every turn.
//
// These rules must always hold:
//   arrows      every turn is a declared arrow, with the event that the arrow names
//   selection   SELECT_SOURCE_ID keeps the player exactly when the keys are equal, except for index -1
//   players     a pending pid exists exactly during a launch or switch; the current pid and the current source are set
//               and cleared together; at most two players are alive (not counting one that SWITCH_PLAYER regarded as
//               gone when an unknown child exited)
//   status      "Decoder.Info.CurrentSource" is the current source; a launch without a current player names its source
//               before the player is up
//   exits       every player's exit that the machine takes is classified once, for the source that the player showed
//   modes       AUTO states only in automatic mode, MANUAL states only in manual mode; a pause only in automatic mode
//   events      an event that a state takes without a reaction is queued again; a lock waits for DISCONNECTED
//   timers      a state that waits for a timer waits for the one that was armed last
//   alarms      no alarm replaces another one before its display time is over
//   progress    the machine never takes many turns without waiting. After any list, telling it to disconnect leads to
//               DISCONNECTED, and telling it to connect leads to a picture
#pragma once

#include "launcher/model/checker/step.h"

#include <functional>
#include <string>
#include <vector>

namespace checker {

class World;

// An additional rule, checked after every turn. Returns "" or a description of what is wrong.
using Invariant = std::function<std::string()>;

// Totals over all runs of the process.
struct Coverage {
    std::vector<long> walked; // per row of transitions()
    long turns = 0;
    long steps = 0;
    long runs = 0;
};
extern Coverage coverage;

// Runs the list from the start of the machine. Returns "" or the rule that was broken, with state and step.
std::string check(const Steps& steps, const Invariant& extra = nullptr);

} // namespace checker
