// Signals to players.
#pragma once

// Sends the signal to the player. Refuses 0 and negative pids, which would reach whole groups of processes; a
// player that has ended meanwhile is no error, any other failure is logged. Main thread.
void signalPlayer(int pid, int signo);
