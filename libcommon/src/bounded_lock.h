// flock with a bound: another process may have been stopped while it held the lock.
//
// Nothing here allocates or logs; all of it may be used in signal handlers and between fork and exec.
#pragma once

#include <chrono>
#include <cstdint>

namespace local {

// How long a writer waits for a lock. A holder needs milliseconds; a slow flash may need half a second. The supervisor
// gives up sooner, because players wait for it meanwhile; other programs have a user who can wait.
inline constexpr std::chrono::milliseconds supervisorPatience{1000};
inline constexpr std::chrono::milliseconds otherPatience{5000};
std::chrono::milliseconds lockPatience();

// A waiting process looks at the lock this often.
inline constexpr std::chrono::milliseconds lockInterval{2};

enum class SignalsInWait {
    letIn, // on the main thread SIGINT and SIGCHLD are open while it waits
    kept,  // the mask stays as it is
};

// Takes the flock (`operation` LOCK_EX or LOCK_SH) of an open file. False with errno: ETIMEDOUT when it was not free
// within `patience` (0: when it is not free now). Handlers that run meanwhile don't end the wait.
bool lockWithin(int fd, int operation, std::chrono::milliseconds patience, SignalsInWait signals);

// Sleeps with the same choice of signals.
void pauseFor(std::chrono::milliseconds time, SignalsInWait signals);

// Opens a lock file, made with its folders where it is missing. -1 with errno.
//
// A new lock file has the group of its folder, and that group may read it, so that every user who may replace the files
// can lock them. Other users can't open it, because a lock that is held stops every writer.
int openLockFile(const char* path);

// The process that holds a flock, as a phrase for the log.
struct LockHolder {
    char text[64] = "another process";
};

// "process 4711 (decoderctl)"; "another process" when the holder can't be found.
LockHolder lockHolder(int fd);

} // namespace local
