// Files in the run directory that tell every process the number of a System V object: "ID PID STAMP\n".
//
// The stamp tells whether the object of that number is still the one that was meant: numbers begin again when
// the machine starts. Nothing here allocates or logs; all of it may be used in signal handlers and between
// fork and exec.
#pragma once

#include "libcommon/src/signals_held.h"

#include <cstdint>

namespace local {

struct RunId {
    int id = -1;
    int pid = -1; // of the process that made or owns the object
    std::int64_t stamp = 0;
};

// Opens the file /run/decoder/NAME.id below the appliance root for reading. -1 with errno.
int openRunId(const char* name);

// Reads it from the start of an open file. False with errno ENOENT for anything but a whole record.
bool readRunId(int fd, RunId& record);

// Both at once.
bool readRunId(const char* name, RunId& record);

// Replaces the file as a whole. Its folder must exist. False with errno.
bool writeRunId(const char* name, const RunId& record);

void removeRunId(const char* name);

// The exclusive lock that belongs to the file, for the life of the object; makes the run directory where it is
// missing. Holds signals back meanwhile: a handler that needs the same lock would wait for the thread that it
// interrupted. Safe between fork and exec.
class RunIdLock {
public:
    explicit RunIdLock(const char* name);
    ~RunIdLock();
    RunIdLock(const RunIdLock&) = delete;
    RunIdLock& operator=(const RunIdLock&) = delete;

    explicit operator bool() const { return fd_ >= 0; } // false: errno was set by the constructor

private:
    SignalsHeld signalsHeld_;
    int fd_ = -1;
};

} // namespace local
