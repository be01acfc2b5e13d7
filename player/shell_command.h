// Runs a shell command and waits for it.
#pragma once

// Like system(3), but the supervisor's own signal dispositions stay as they are, and SIGINT and SIGCHLD are let in
// while the command runs. The shell runs with an empty signal mask. The wait status, or -1 with errno.
int runShellCommand(const char* command);
