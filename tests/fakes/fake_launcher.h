// What the state machine does to the world outside, for unit tests: no signal is sent, nobody sleeps, no
// resolver configuration is read. Link it before the library `process`, whose sleep it replaces.
//
// Recorded in fake::calls as signalPlayer(100,1)  sleepSeconds(2)  __res_init()
#pragma once

#include "launcher/player_signal.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>

namespace fake {

void resetLauncher();

// Run after the call was recorded; default nothing.
extern std::function<void(int pid, int signo)> onSignalPlayer;
extern std::function<void(int seconds)> onSleepSeconds;

} // namespace fake
