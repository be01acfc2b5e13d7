// Barriers: one file and one message queue per player, and the table that maps pids to queues.
//
// A player's barrier exists from right after its fork until its exit is taken from the event queue. The table has
// no lock: only the main thread uses it. This file is below the event queue, which drops barriers; the rendezvous,
// which waits on the event queue, is in master_barrier.h.
#pragma once

#include <string>

// APPLIANCE_ROOT/var/tmp/barrier.PID
std::string barrierFileName(int pid);

// Makes the file and the queue and enters the queue into the table, in place of the stale entry of a reused pid. A
// stale file is reused when it is a regular file of this user with one name; a link, a FIFO, a folder or another user's
// file is refused; otherwise another user could choose a file for us to empty. 0, or -1 with a log line.
int createBarrier(int pid);

// Removes a player's barrier at shutdown. Allocates nothing, so that it is safe after a crash. Kept: an unknown
// pid, -1 included, has queue id 0; the removal of that queue is attempted and its failure logged. 0 or -1.
int removeBarrier(int pid);

// Removes a barrier after its player's exit, silently; harmless when repeated. 0 or -1.
int dropBarrier(int pid);

// Removes the barriers of an earlier supervisor that crashed: those that still have a queue. 0, or -1 with a log line.
int removeStaleBarriers();

// The queue id of a pid's barrier. Kept: an unknown pid is entered with queue id 0.
int barrierQueue(int pid);

// Whether createBarrier was called for this pid, for the last 16 pids. Any thread.
bool isPlayer(int pid);
