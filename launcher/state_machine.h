// The playback state machine: decides which source is shown and reacts to every event.
//
// main calls stateMachine() once, after start-up; the shutdown handler ends the process while it runs. Each turn of
// the loop runs the handler of the current state once. A handler either calls setState or returns and runs again. The
// machine waits only in four places: for an event, in a detection, at a barrier, in a fixed sleep. All other threads
// reach it through the event queue. Main thread.
//
//   states.h        names and numbers of the states    states_*.cpp       the handlers, one file for each group
//   state_table.h   the handler of each state          waiting.h          how a state waits, common reactions
//   machine.h       the machine's variables            pending_source.h   choosing and detecting the next source
//   display.h       on-screen texts, the LED           shown.h            the log lines about the screen
//
// Tests and documents use a model of the machine, which the program does not contain: launcher/model/transitions.h.
#pragma once

#include "launcher/machine.h"

void stateMachine();

// The parts of stateMachine(), for tests: the steps before the loop, and one turn of the loop.
void startMachine();
void runState();
