// The list of live players, and the handler that reaps them.
//
// The list is changed only on the main thread: by gaffel with SIGCHLD blocked, and by the SIGCHLD handler,
// which runs only where the main thread waits. Children that are not in the list belong to whoever waits for
// them.
#pragma once

// Enters a child. Its exit will come as EID_CHILD.
void addChild(int pid);

// Installs the SIGCHLD handler (system calls are restarted after it) and makes the fork hand-shake semaphore.
void installChildReaper();

// The handler: reaps every ended child of the list and sends EID_CHILD with pid and wait status for each.
void reapChildren(int signo);
