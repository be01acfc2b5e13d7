// Signals to players.
#pragma once

// Sends the signal to the player. Refuses 0 and negative pids, which mean whole groups of processes. A player
// that has already ended is not an error; every other failure is logged. Main thread.
void signalPlayer(int pid, int signo);
