// Removing the remains of dead processes below this appliance root.
//
// A killed supervisor leaves its event queue, its semaphores, the barriers of its players and sometimes the players
// themselves; a killed writer leaves its temporary file. The sweep removes all of it. It is for the programs that
// manage an appliance (decoderctl, start scripts), not for the supervisor. It keeps configuration, status values, lock
// files and everything that may belong to another root.
#pragma once

namespace libcommon {

struct Sweep {
    int supervisor = -1;   // with EBUSY: the process that owns the root, 0 when its pid is unknown
    int players = 0;       // killed
    int barriers = 0;      // barrier files removed
    int queues = 0;        // message queues removed: barriers and events
    int semaphoreSets = 0; // removed
    int files = 0;         // removed from the run and configuration directories
    int failures =
        0; // objects that could not be removed, players that could not be killed; each has a log line
};

// Sweeps and counts. The owner lock /run/decoder/skelmor.lock decides whether a supervisor lives: a supervisor holds
// the file's exclusive flock for its whole life. Without this file, the live owner of the event queue decides. The
// sweep holds the lock while it works. 0 when nothing is left; -1 with errno EBUSY while a supervisor lives, or with
// the error of the first failure. Takes at most about five seconds. Any thread.
int sweep(Sweep& done);

} // namespace libcommon
