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

} // namespace local
