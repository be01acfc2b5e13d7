// The lock that makes a supervisor the only one of its appliance root.
//
// Two supervisors on one root would take events from each other and remove the barriers of each other's players. The
// lock is an exclusive flock of APPLIANCE_ROOT/run/decoder/skelmor.lock: the kernel releases it however the process
// ends. The file holds the owner's pid as text and a newline; other programs test the same lock. The file
// itself stays.
#pragma once

#include <string>

struct OwnerLock {
    enum class Result {
        taken,       // for the life of this process
        heldByOther, // `pid` holds it; -1 when the holder has not recorded its pid
        unavailable, // the file can't be made or locked: `error` is the errno value
    };
    Result result = Result::unavailable;
    int pid = -1;
    int error = 0;
    std::string file;
};

// Takes the lock, making the run directory where it is missing. When nobody alive owns a lock that is held (a forked
// child that has not begun its program yet, or a sweep of leftovers, which takes up to five seconds), it waits for the
// lock, at most six seconds. Main thread, once.
OwnerLock takeOwnerLock();
