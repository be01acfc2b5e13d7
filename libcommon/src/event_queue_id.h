// Which System V message queue is the appliance's, and whether it still is.
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

// Whether this process is the supervisor: it attached to the queue and has not removed it.
bool ownsEventQueue();

// Removes the queue that a dead owner left, and the file that names it. 1 when there was one, 0 when not; -1 with a
// log line. The caller has made sure that no supervisor lives.
int removeLeftEventQueue();

} // namespace local
