#include "libcommon/src/sweep_players.h"

#include "libcommon/src/files.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace local {

namespace {

constexpr int endMilliseconds = 2000;

// Files of /proc have no size that could be asked for.
std::string readProcessFile(pid_t pid, const char* name) {
    const std::string path = "/proc/" + std::to_string(pid) + "/" + name;
    const Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char part[4096];
    ssize_t length = 0;
    while (fd && (length = read(fd.get(), part, sizeof part)) > 0 && text.size() < (1U << 22U))
        text.append(part, static_cast<std::size_t>(length));
    return text;
}

bool hasThisRoot(const std::string& environment) {
    static constexpr std::string_view name = "APPLIANCE_ROOT=";
    std::string_view rest = environment;
    while (!rest.empty()) {
        const std::string_view variable = rest.substr(0, rest.find('\0'));
        if (variable.starts_with(name))
            return variable.substr(name.size()) == libcommon::applianceRoot();
        rest.remove_prefix(std::min(rest.size(), variable.size() + 1));
    }
    return libcommon::applianceRoot().empty();
}

// When the process began, in seconds of the wall clock; 0 when it is gone.
double startTime(pid_t pid) {
    const std::string stat = readProcessFile(pid, "stat");
    const std::size_t name = stat.rfind(')'); // which may itself have blanks and parentheses
    unsigned long long ticks = 0;
    if (name == std::string::npos ||
        std::sscanf(stat.c_str() + name + 1,
                    "%*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
                    "%*s %*s %llu",
                    &ticks) != 1)
        return 0;
    timespec wall{};
    timespec boot{};
    clock_gettime(CLOCK_REALTIME, &wall);
    clock_gettime(CLOCK_BOOTTIME, &boot);
    const double bootAt = static_cast<double>(wall.tv_sec - boot.tv_sec) +
                          static_cast<double>(wall.tv_nsec - boot.tv_nsec) / 1e9;
    return bootAt + static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The barrier is made right after the fork: a process that began later has got the pid of a player that is gone.
bool isPlayerOf(pid_t pid, const struct stat& barrier, bool hasQueue) {
    constexpr double clockTolerance = 1;
    struct stat process {};
    if (stat(("/proc/" + std::to_string(pid)).c_str(), &process) != 0 || process.st_uid != barrier.st_uid)
        return false;
    // Without a root every process of the machine looks like this appliance's. A file outlives a restart of the
    // machine and pids begin again then; a message queue does not.
    if (libcommon::applianceRoot().empty() && !hasQueue)
        return false;
    const double began = startTime(pid);
    const std::string environment = readProcessFile(pid, "environ");
    return began > 0 && began <= static_cast<double>(barrier.st_mtim.tv_sec) + clockTolerance &&
           !environment.empty() && hasThisRoot(environment);
}

// The C++ declaration of pidfd_open() in glibc 2.36 does not link.
int openProcess(pid_t pid) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

} // namespace

PlayerEnd killPlayer(pid_t pid, const struct stat& barrier, bool hasQueue) {
    if (pid <= 1 || pid == getpid())
        return PlayerEnd::none;
    // First a descriptor: what is asked below is then about the process that is killed.
    const Descriptor process(openProcess(pid));
    if (!process || !isPlayerOf(pid, barrier, hasQueue))
        return PlayerEnd::none;
    if (syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0) != 0 && errno != ESRCH)
        return PlayerEnd::failed;
    pollfd end{.fd = process.get(), .events = POLLIN, .revents = 0};
    if (poll(&end, 1, endMilliseconds) == 1)
        return PlayerEnd::killed;
    errno = EBUSY; // it sleeps in the kernel
    return PlayerEnd::failed;
}

} // namespace local
