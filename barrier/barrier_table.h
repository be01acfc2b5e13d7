// Barriers: one file and one message queue per player, and the table that knows them.
//
// A player's barrier exists from right after its fork until its exit is taken from the event queue. The table
// maps pids to queue ids and has no lock: the main thread alone uses it. This half stands below the event
// queue, which drops barriers; the rendezvous that waits on the queue is master_barrier.h.
#pragma once

#include <string>

// APPLIANCE_ROOT/var/tmp/barrier.PID
std::string barrierFileName(int pid);

// Makes the file and the queue and enters them; a stale entry of a reused pid is replaced. 0, or -1 with a
// log line.
int createBarrier(int pid);

// Removes a player's barrier at shutdown. Kept: an unknown pid, -1 included, is looked up as queue id 0, and
// the removal of that queue is attempted and its failure logged. 0 or -1.
int removeBarrier(int pid);

// Removes a barrier after its player's exit, silently; harmless when repeated. 0 or -1.
int dropBarrier(int pid);

// Sweeps away barriers that a crashed supervisor left: those that still have a queue. 0, or -1 with a log
// line.
int removeStaleBarriers();

// The queue id of a pid's barrier. Kept: an unknown pid is entered with queue id 0.
int barrierQueue(int pid);
