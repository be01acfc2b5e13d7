// Start-up: from main to the playback state machine.
//
// Starts everything in one fixed order, so that nothing is used before it exists. Single-threaded until the event
// handler thread starts. Once the signal handlers are installed, signals stay pending until the main thread waits. Two
// things end a start-up: another supervisor on the same appliance root, and a button that can't be read. Every other
// failure is logged by the function in which it occurs, and the start-up continues.
#pragma once

// Counts the -v of the command line into process.verbosity. Unknown options and operands are ignored without a
// message. May be called again: each call scans from the start.
void readOptions(int argc, char** argv);

// Runs the supervisor. The process ends with status 0 when the state machine returns, with 255 when the button
// thread can't be created, and with 1 when another supervisor has the appliance root: then nothing was touched. The
// shutdown handler and the button thread end the process themselves.
[[noreturn]] void runSupervisor(int argc, char** argv);
