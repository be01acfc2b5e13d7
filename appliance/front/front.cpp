// The front of a player or of decoderctl: it hides user names and passwords, then starts the program proper.
//
// The password is on the command line, and every user of the machine can read command lines. Loading a
// player's libraries takes 40 ms and more, during which the player itself can't hide anything. So the program
// that is started is this one: statically linked, it loads nothing. It copies its arguments into
// memory that only its own user can reach, overwrites the secrets, and executes the program, which reads the
// arguments from there. The pid, the process name, the signal state and the environment stay the same.
//
// FRONT_PROGRAM is the program proper, relative to this program's folder.
#include "appliance/front/hiding.h"
#include "appliance/front/option_letters.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, FRONT_NAME ": %s: %s\n", what, std::strerror(errno));
    _exit(front::cannotStart);
}

bool writeAll(int fd, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = write(fd, bytes, count);
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

// Returns a descriptor, above the standard ones, with all arguments, each with its NUL. It survives the exec.
int copyOf(int argc, char** argv) {
    int fd = memfd_create("player-arguments", 0);
    if (fd >= 0 && fd <= STDERR_FILENO)
        fd = fcntl(fd, F_DUPFD, STDERR_FILENO + 1);
    if (fd < 0)
        fail("no memory for the arguments");
    for (int i = 0; i < argc; ++i)
        if (!writeAll(fd, argv[i], std::strlen(argv[i]) + 1))
            fail("the arguments can't be stored");
    if (lseek(fd, 0, SEEK_SET) != 0)
        fail("the arguments can't be stored");
    return fd;
}

// The path of the program proper.
const char* programPath() {
    static char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length < 0)
        fail("/proc/self/exe");
    const std::string_view own(path, static_cast<std::size_t>(length));
    const std::size_t folder = own.rfind('/') + 1;
    constexpr std::string_view program = FRONT_PROGRAM;
    if (folder + program.size() >= sizeof path) {
        errno = ENAMETOOLONG;
        fail("the program");
    }
    std::memcpy(path + folder, program.data(), program.size());
    path[folder + program.size()] = '\0';
    return path;
}

} // namespace

int main(int argc, char** argv) {
    const int copy = copyOf(argc, argv);
    front::hideSecrets(argc, argv);
    // A player must also end when the supervisor dies while the player is loading.
    if (front::endsWithItsStarter)
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    char number[16];
    std::snprintf(number, sizeof number, "%d", copy);
    if (setenv(front::argumentsVariable, number, 1) != 0)
        fail("no memory for the environment");
    const char* program = programPath();
    execv(program, argv);
    fail(program);
}
