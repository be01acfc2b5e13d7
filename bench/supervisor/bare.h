// bare_launcher, which does what a supervisor does and nothing else.
#pragma once

#include "bench/supervisor/tiny_decoder.h"

#include <cstdio>
#include <map>
#include <string>
#include <sys/types.h>

namespace bench {

// A running bare_launcher that takes orders. The destructor ends it. One thread.
class BareLauncher {
public:
    // With as much memory of its own as the process `like`, and the same libraries loaded, so that a fork takes as long. It
    // starts `program` with these variables.
    BareLauncher(int like, const std::string& program, const std::map<std::string, std::string>& variables);
    ~BareLauncher();
    BareLauncher(const BareLauncher&) = delete;
    BareLauncher& operator=(const BareLauncher&) = delete;

    struct Times {
        std::int64_t first = 0;  // of the fork, or of the kill
        std::int64_t second = 0; // the pid, or the time of SIGCHLD
    };
    Times startAndAwaitEnd() { return order("e\n"); }
    Times start() { return order("s\n"); }
    Times killIt() { return order("k\n"); }

private:
    Times order(const char* text);

    pid_t pid_ = -1;
    FILE* orders_ = nullptr;
    FILE* answers_ = nullptr;
};

// Kilobytes of memory that belong to the process alone.
long privateKilobytes(int pid);

} // namespace bench
