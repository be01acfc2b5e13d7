// The playback state machine: which source is shown, and what becomes of everything that happens.
//
// main calls stateMachine() once, after start-up; the shutdown handler ends the process while it runs. Each
// turn of the loop runs the handler of the current state once; a handler either goes to the next state with
// setState or returns and is run again. The machine waits in four places only: for an event, in a detection,
// at a barrier, in a fixed sleep. All other threads reach it through the event queue. Main thread.
//
//   states.h         names and numbers              states_*.cpp       the handlers, a file a group
//   state_table.h    which handler runs where       waiting.h          how a state waits, common reactions
//   transitions.h    which state may follow which   pending_source.h   choosing and detecting what comes next
//   machine.h        what the machine knows         display.h          what the user is told
#pragma once

#include "launcher/machine.h"

void stateMachine();

// What stateMachine() is made of, for tests: the steps before the loop, and one turn of it.
void startMachine();
void runState();
