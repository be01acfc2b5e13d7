// Shutdown: SIGINT and SIGSEGV stop the players, remove what the supervisor shared with them, and end the process.
//
// SIGINT comes only where the main thread waits. SIGSEGV may come anywhere: in the middle of malloc, of a log line,
// of a system library's lock, with the stack exhausted. The handler therefore
// - runs on a stack of its own after a crash;
// - allocates nothing and uses stdio nowhere; what it calls of libcommon, of barrier/ and of the C library is a step
//   that is abandoned when it hangs or crashes (shutdown_steps.h). libcommon's logmsg and removeEventQueue work
//   even when the crash was inside them;
// - ends a crashed process with _exit: exit handlers free memory, and the crash may have been inside the allocator.
// A crash in the middle of a shutdown costs at most the step that it happened in. A SIGSEGV that somebody else
// sends meanwhile costs nothing.
//
// The status is 0 after a crash, too, on purpose: to start the supervisor again is the task of the program that
// started it, and the log tells a crash from an ordinary stop.
#pragma once

// Installs the handlers for SIGINT and SIGSEGV; SIGUSR1 is ignored until a detection needs it. Main thread, once.
void installShutdownHandler();

// The handler for SIGINT; SIGSEGV ends here, too. Returns only for other signals, having done nothing. Waits without
// a time limit for a player that neither SIGINT nor, half a second later, SIGTERM ends.
void shutdownHandler(int signo);
