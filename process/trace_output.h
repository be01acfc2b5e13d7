// Trace lines on standard output.
//
// The timers, the launches and the detection print what they do, for a person who watches the supervisor in a
// terminal. Standard output may be a pipe or a terminal that is not read. Then a line that cannot be written at
// once is dropped and counted; the count is logged with the next line that can be written. A trace line
// therefore never makes its caller wait.
//
// O_NONBLOCK is never set on standard output itself: the caller's terminal and the players share it. The supervisor
// opens the same pipe or terminal a second time for itself, without blocking. If that is refused, it first asks whether
// there is room.
#pragma once

// Opens that second descriptor. Without it, trace lines still work, except that another writer may take the
// room between the question and the write. Main thread, once, after the standard streams are in order.
void openTraceOutput();

// Prints the whole text or nothing. Any thread; not in a signal handler.
void printTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One line on standard error, or as much as can be written at once. Any thread; safe in a signal handler.
void printError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same as printTrace in a signal handler: it never logs, and cuts longer text to 4 KiB.
void printTraceInHandler(const char* format, ...) __attribute__((format(printf, 1, 2)));
