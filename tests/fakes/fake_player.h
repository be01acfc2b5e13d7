// Players for unit tests, linked in place of the player folder. Nothing is started, each call is recorded.
// Call fake::resetPlayer() after fake::reset().
//
// Recorded in fake::calls as
//   launchPlayer(3)  launchPlayer(null)  gotoPtzPreset(3)  handleError(3,117,256)  blankscreen()
// with source indices; handleError also with value 1 (pid) and value 2 (wait status) of its event.
#pragma once

#include "player/launch.h"
#include "player/player_exit.h"
#include "player/ptz.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>

namespace fake {

void resetPlayer();

// The pid of the next player of the default launch; it counts up from 1000, which resetPlayer sets.
extern int nextPlayerPid;

// Default: -1 for a null or undetected entry, else nextPlayerPid++.
extern std::function<int(SourceEntry*)> onLaunchPlayer;

// Called after the call was recorded; nothing by default.
extern std::function<void(int sourceIndex)> onGotoPtzPreset;
extern std::function<void(int sourceIndex, const Event* event)> onHandleError;

} // namespace fake
