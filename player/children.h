// The list of live players, and the handler that reaps them.
//
// Only the main thread changes the list: gaffel with SIGCHLD blocked, and the SIGCHLD handler, which runs only where
// the main thread waits. The handler never reaps a child that is not in the list, such as a shell command's.
#pragma once

// Adds a child to the list. Its exit comes as EID_CHILD.
void addChild(int pid);

// Installs the SIGCHLD handler, after which system calls are restarted, and creates the fork hand-shake semaphore.
void installChildReaper();

// The handler: reaps every ended child of the list and sends EID_CHILD with pid and wait status for each.
void reapChildren(int signo);
