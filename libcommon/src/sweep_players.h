// Players that outlived their supervisor.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace local {

enum class PlayerEnd {
    none,   // no process has this pid, or it is not the player of this barrier: pids are reused
    killed, // it was killed and is gone
    failed, // it still lives; errno tells why
};

// Kills the process that a barrier file names, if it is that barrier's player: it has this appliance root, it belongs
// to the user who owns the file, and it is not younger than the file. `hasQueue`: the barrier still has its message
// queue. Waits at most two seconds for its end.
PlayerEnd killPlayer(pid_t pid, const struct stat& barrier, bool hasQueue);

} // namespace local
