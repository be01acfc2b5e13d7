#include "bench/memory_files.h"

#include <cstdlib>
#include <sys/statvfs.h>
#include <unistd.h>

namespace bench {

void keepFilesInMemory() {
    constexpr const char* folder = "/dev/shm";
    struct statvfs system {};
    const bool runsPrograms = statvfs(folder, &system) == 0 && (system.f_flag & ST_NOEXEC) == 0;
    if (runsPrograms && access(folder, W_OK | X_OK) == 0)
        setenv("TMPDIR", folder, 0);
}

} // namespace bench
