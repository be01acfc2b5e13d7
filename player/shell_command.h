// Runs a shell command and waits for it.
#pragma once

// Like system(3), but without a change of the supervisor's signal dispositions: a SIGINT that is pending or arrives
// meanwhile is not lost. The shell has an empty signal mask. Returns the wait status, or -1 with errno.
int runShellCommand(const char* command);
