// The appliance's System V message queue: making it, finding it, removing it.
#pragma once

#include "libcommon/src/run_id.h"

#include <sys/msg.h>

namespace local {

inline constexpr const char* eventQueueName = "events";

// The queue's state when the record names a queue that exists and is the one that was meant; otherwise false
// with errno ENOENT, or EACCES. Safe in a signal handler.
bool lookAtEventQueue(const RunId& record, msqid_ds& queue);

// Whether the process that owns the queue is alive.
bool ownerLives(const RunId& record);

// Takes over the queue of an earlier supervisor, with the events in it, or makes one. False with errno.
bool attachEventQueue(RunId& record);

// Writes the file that names the owner's queue again when it is gone or names another one. Returns 0 when it was right, 1
// when it was written, -1 when that failed.
int restoreEventQueueRecord(int queue);

// Removes the queue that a dead owner left, and the file that names it. Returns how many there were; -1 with a log
// line. The caller has made sure that no supervisor lives.
int removeLeftEventQueue();

// Whether this process is the supervisor: it has called initEventQueue().
bool ownsEventQueue();

} // namespace local
