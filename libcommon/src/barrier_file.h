// Barrier files and the message queues that belong to them.
#pragma once

#include <sys/stat.h>

namespace local {

// The message queue of a barrier file. -1 with errno; ENOENT when the file or the queue is missing. A link or anything
// else that is no regular file has no queue: anybody may put one into the folder. `file` gets the file's state. Safe in a signal handler.
int barrierQueueOf(const char* path, struct stat& file);

} // namespace local
