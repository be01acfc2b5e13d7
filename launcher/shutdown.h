// Shutdown: SIGINT and SIGSEGV stop the players, remove what the supervisor shared with them, and end the process.
//
// SIGINT comes only where the main thread waits. SIGSEGV may come anywhere: in the middle of malloc, of a log line,
// of a system library's lock, with the stack exhausted. The handler therefore
// - runs on a stack of its own after a crash;
// - allocates nothing and does not use stdio; each call into libcommon, barrier/ or the C library is a step that is
//   abandoned when it hangs or crashes (shutdown_steps.h). libcommon's logmsg and removeEventQueue work even when the
//   crash was inside them;
// - ends a crashed process with _exit: exit handlers free memory, and the crash may have been inside the allocator.
// A crash during a shutdown costs at most the step in which it happens; the removal of a barrier or of the queue, and
// what is between two steps, costs nothing unless it crashes again. A SIGSEGV from another process has no effect during a shutdown.
//
// The status is 0 after a crash, too, on purpose: restarting the supervisor is the task of the program that started it,
// and the log shows whether it crashed.
#pragma once

// Installs the handlers for SIGINT and SIGSEGV; SIGUSR1 is ignored until a detection needs it. Main thread, once.
void installShutdownHandler();

// The handler for SIGINT; SIGSEGV leads here, too. For other signals it does nothing and returns. Waits without a time
// limit for a player that neither SIGINT nor, half a second later, SIGTERM ends.
void shutdownHandler(int signo);
