// Start-up: from main to the playback state machine.
//
// Brings everything up in one fixed order: who needs a thing comes after it. Single-threaded until the event
// handler thread starts; from the installation of the signal handlers on, signals wait for the main thread's
// waits. Nothing but a button that can't be read stops a start-up; every other failure is logged by whom it
// meets.
#pragma once

// Counts the -v of the command line into process.verbosity. Unknown options and operands are ignored without
// a word. May be called again: each call scans from the start.
void readOptions(int argc, char** argv);

// Runs the supervisor. The process ends with status 0 when the state machine comes back, 255 when the button
// thread could not be created; the shutdown handler and the button thread end it on their own.
[[noreturn]] void runSupervisor(int argc, char** argv);
