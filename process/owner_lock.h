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

// Takes the lock, making the run directory where it is missing. A lock that is held without a living owner (a
// forked child that has not begun its program yet, a program that only tests the lock) is waited for, for at
// most two seconds. Main thread, once.
OwnerLock takeOwnerLock();
