// The front of a player: it hides the user name and the password, then starts the player proper.
//
// The password is on the command line, and every user of the machine can read command lines. Loading the
// player's libraries takes 40 ms and more, during which the player itself can't hide anything. So the program
// that the supervisor starts is this one: statically linked, it loads nothing. It copies its arguments into
// memory that only its own user can reach, overwrites the secrets, and executes the player, which reads the
// arguments from there. The pid, the process name, the signal state and the environment stay the same.
//
// FRONT_PROGRAM is the player proper, relative to this program's folder.
#include "appliance/players/front/option_letters.h"

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

constexpr int cannotStart = 13; // as when the supervisor itself can't execute a player

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, FRONT_NAME ": %s: %s\n", what, std::strerror(errno));
    _exit(cannotStart);
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

void hide(char* secret) {
    const std::size_t length = std::strlen(secret);
    std::memset(secret, 0, length);
    if (length > 0)
        secret[0] = '*';
}

bool contains(std::string_view letters, char letter) {
    return letters.find(letter) != std::string_view::npos;
}

// Hides the secrets in one argument. Returns true when the value of its last letter is the next argument;
// `secret` is then set to whether that must be hidden.
bool hideInside(char* argument, bool& secret) {
    for (char* letter = argument + 1; *letter != '\0'; ++letter) {
        if (!contains(player::lettersWithValue, *letter))
            continue;
        secret = contains(player::secretLetters, *letter);
        if (letter[1] == '\0')
            return true;
        if (secret)
            hide(letter + 1);
        return false;
    }
    return false;
}

// Overwrites the secrets in the process's visible command line.
void hideSecrets(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-' || argv[i][1] == '-')
            continue;
        bool secret = false;
        if (hideInside(argv[i], secret) && ++i < argc && secret)
            hide(argv[i]);
    }
}

// The path of the player proper.
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
        fail("the player");
    }
    std::memcpy(path + folder, program.data(), program.size());
    path[folder + program.size()] = '\0';
    return path;
}

} // namespace

int main(int argc, char** argv) {
    const int copy = copyOf(argc, argv);
    hideSecrets(argc, argv);
    // The process must also end when the supervisor dies while the player is loading.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    char number[16];
    std::snprintf(number, sizeof number, "%d", copy);
    if (setenv(player::argumentsVariable, number, 1) != 0)
        fail("no memory for the environment");
    const char* program = programPath();
    execv(program, argv);
    fail(program);
}
