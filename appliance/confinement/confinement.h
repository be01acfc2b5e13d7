// Takes rights away from the running process that it does not need: what it decodes comes from outside, and a mistake in a
// decoder must not give more away than the decoder's own picture.
//
// Two parts of the kernel do it: Landlock decides about files, and about TCP ports where the kernel is 6.7 or later; a filter
// of system calls decides about all else. Neither can be undone, and both are passed on to threads and children. A program
// says what it still needs; everything else is refused with EPERM or EACCES, and the process goes on.
//
// Refused in any case: starting programs and processes, listening, tracing, signals to other processes, mounting, loading
// into the kernel, raw sockets, changing owners, System V objects that are not listed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace confinement {

// Paths that do not exist are left out: the process can't make them. A rule for a folder is for all that is in it.
struct Files {
    std::vector<std::string> readable{}; // files and folders
    std::vector<std::string> writable{}; // existing files that are read and written
    std::vector<std::string>
        changing{}; // folders in which files are made, replaced, removed, read and written
    std::vector<std::string> devices{}; // device files, or folders of them
};

// System V message queues. The default allows none.
struct Queues {
    int received = -1;                   // the queue that is received from
    int sent = -1;                       // the queue that is sent to,
    std::vector<const void*> messages{}; // and the messages, which must lie below `lowestMemoryEnd`
    std::uintptr_t lowestMemoryEnd = 0;  // memory below is never mapped anew; 0: any message can be sent
};

struct Needs {
    Files files{};
    Queues queues{};
    bool sockets = true;                   // false: no new ones; those that it has are read and written
    std::vector<std::uint16_t> connects{}; // TCP ports that it connects to, on any host
    bool anyPort = false;                  // connects to, and binds, any TCP port
    bool soundCard =
        false; // ALSA's mixing of several programs: System V memory and semaphores, a child process, a socket
};

enum class Part { done, unknownToKernel, failed };

struct Result {
    Part files = Part::failed;
    Part ports = Part::failed;
    Part calls = Part::failed;
};

// Confines the calling thread and all that it starts later: call it before other threads exist. What the kernel can't do
// stays open, and the result says so. Allocates memory, and leaves no descriptor open.
Result confine(const Needs& needs);

// What is open, as an end of a sentence for the log; "" when nothing is.
std::string whatStaysOpen(const Result& result);

} // namespace confinement
