// Replaces the state machine's effects on the rest of the system in unit tests: no signal is sent, no time is slept
// and no resolver configuration is read. Link it before the library `process`, whose sleep it replaces.
//
// Recorded in fake::calls as signalPlayer(100,1)  sleepSeconds(2)  __res_init()
#pragma once

#include "launcher/player_signal.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>

namespace fake {

void resetLauncher();

// Called after the call was recorded; nothing by default.
extern std::function<void(int pid, int signo)> onSignalPlayer;
extern std::function<void(int seconds)> onSleepSeconds;

} // namespace fake
