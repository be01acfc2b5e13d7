#include "appliance/screen/wall/tile_process.h"

#include "appliance/screen/wall/tile_connection.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace screen {
namespace {

constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t firstPauseUs = second;
constexpr std::int64_t longestPauseUs = 30 * second;
constexpr std::int64_t goodRunUs = 60 * second;

// The environment with another appliance root. The pointers are valid as long as `variable` and the environment are.
std::vector<char*> environmentWith(std::string& variable) {
    constexpr std::string_view name = "APPLIANCE_ROOT=";
    std::vector<char*> all;
    for (char** at = environ; at != nullptr && *at != nullptr; ++at)
        if (std::string_view(*at).substr(0, name.size()) != name)
            all.push_back(*at);
    all.push_back(variable.data());
    all.push_back(nullptr);
    return all;
}

class SpawnActions {
public:
    SpawnActions() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    // The child has an empty signal mask and the connection at its number. dup2() onto the same number would keep it
    // closed on exec, so the caller has another number.
    void prepare(int connection) {
        sigset_t none;
        sigemptyset(&none);
        posix_spawn_file_actions_adddup2(&actions_, connection, tileConnection);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

bool endsWithin(pid_t pid, int milliseconds) {
    for (int waited = 0; waited < milliseconds; waited += 10) {
        if (waitpid(pid, nullptr, WNOHANG) != 0)
            return true;
        const timespec step{0, 10'000'000};
        nanosleep(&step, nullptr);
    }
    return waitpid(pid, nullptr, WNOHANG) != 0;
}

} // namespace

TileProcess::TileProcess(std::string program, std::string root)
    : program_(std::move(program)), root_(std::move(root)) {}

TileProcess::~TileProcess() {
    end(1000);
}

bool TileProcess::keepRunning(std::int64_t now) {
    if (pid_ != -1 || now < startAgainAt_)
        return false;
    startedAt_ = now;
    if (start())
        return true;
    logmsg(3, "Can't start %s for %s (errno=%d %s)", program_.c_str(), root_.c_str(), errno,
           std::strerror(errno));
    giveUp(now);
    return false;
}

bool TileProcess::start() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    std::string variable = "APPLIANCE_ROOT=" + root_;
    std::vector<char*> environment = environmentWith(variable);
    char* arguments[] = {program_.data(), nullptr};
    SpawnActions how;
    how.prepare(ends[1]);
    const int error =
        posix_spawn(&pid_, program_.c_str(), how.actions(), how.attributes(), arguments, environment.data());
    close(ends[1]);
    if (error == 0) {
        socket_ = ends[0];
        return true;
    }
    close(ends[0]);
    pid_ = -1;
    errno = error;
    return false;
}

void TileProcess::giveUp(std::int64_t now) {
    if (pid_ != -1)
        logmsg(3, "The process of the tile of %s has ended or hangs", root_.c_str());
    end(0);
    const bool good = now - startedAt_ >= goodRunUs;
    pauseUs_ = good || pauseUs_ == 0 ? firstPauseUs : std::min(2 * pauseUs_, longestPauseUs);
    startAgainAt_ = now + pauseUs_;
}

void TileProcess::end(int patienceMs) {
    if (socket_ != -1)
        close(socket_); // the process ends when it sees that
    socket_ = -1;
    if (pid_ == -1)
        return;
    if (!endsWithin(pid_, patienceMs)) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

} // namespace screen
