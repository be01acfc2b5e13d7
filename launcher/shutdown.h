// Shutdown: SIGINT and SIGSEGV stop the players, clear away what they shared with us, and end the process.
//
// The handler runs on the main thread in the middle of whatever it waited for (SIGINT) or did (SIGSEGV), and
// uses what no handler should use: it never comes back. The status is 0 after a crash too, on purpose: to be
// started again is up to whoever started us, and the log tells a crash from an ordinary stop.
#pragma once

// The handler for SIGINT and SIGSEGV; SIGUSR1 is ignored until a detection wants it. Main thread, once.
void installShutdownHandler();

// The handler. Returns only for other signals, having done nothing. Waits without limit for a player that
// neither SIGINT nor, half a second later, SIGTERM ends.
void shutdownHandler(int signo);
