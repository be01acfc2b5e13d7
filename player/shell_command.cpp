#include "player/shell_command.h"

#include "process/signal_mask.h"
#include "recorder/recorder.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>

extern char** environ;

namespace {

// Starts the shell with no signal blocked. Returns 0 or an errno value.
int spawnShell(const char* command, pid_t& pid) {
    posix_spawnattr_t attributes;
    if (const int error = posix_spawnattr_init(&attributes))
        return error;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const char* const argv[] = {"sh", "-c", command, nullptr};
    const int error =
        posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(argv), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

int spawnAndWait(const char* command) {
    pid_t pid = -1;
    if (const int error = spawnShell(command, pid)) {
        errno = error;
        return -1;
    }
    int status = 0;
    const OpenSignals open; // a command may never end; SIGINT must still end the supervisor
    // After an interruption by a handler it waits again, so that no zombie is left.
    while (waitpid(pid, &status, 0) == -1)
        if (errno != EINTR)
            return -1;
    return status;
}

} // namespace

int runShellCommand(const char* command) {
    return recorder::outcome("shell", [&] { return spawnAndWait(command); });
}
