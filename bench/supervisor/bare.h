// bare_launcher, which does what a supervisor does and nothing else.
#pragma once

#include "bench/supervisor/tiny_decoder.h"

#include <cstdio>
#include <map>
#include <string>
#include <sys/types.h>

namespace bench {

enum class Memory {
    none,
    same, // as much as the other process has beside its libraries, so that a fork takes as long as there
};

// A running bare_launcher that takes orders. The destructor ends it. One thread.
class BareLauncher {
public:
    // With the libraries of the process `like`, and so much memory. It starts `program` with these variables.
    BareLauncher(int like, Memory memory, const std::string& program,
                 const std::map<std::string, std::string>& variables);
    ~BareLauncher();
    BareLauncher(const BareLauncher&) = delete;
    BareLauncher& operator=(const BareLauncher&) = delete;

    struct Times {
        std::int64_t first = 0;  // of the fork, or of the kill
        std::int64_t second = 0; // the pid, or the time of SIGCHLD
        std::int64_t third = 0;  // 0, or the time when the main thread had the death from the queue
    };
    Times startAndAwaitEnd() { return order("e\n"); }
    Times start() { return order("s\n"); }
    Times killIt() { return order("k\n"); }
    int pid() const { return pid_; }

private:
    Times order(const char* text);

    pid_t pid_ = -1;
    FILE* orders_ = nullptr;
    FILE* answers_ = nullptr;
};

// Kilobytes of memory that belong to the process alone.
long privateKilobytes(int pid);

} // namespace bench
