#include <libcommon/sweep.h>

#include "libcommon/src/barrier_file.h"
#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/files.h"
#include "libcommon/src/left_files.h"
#include "libcommon/src/semaphore_set.h"
#include "libcommon/src/sweep_players.h"

#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using libcommon::appliancePath;
using libcommon::Sweep;

// ---- Is there a supervisor? ------------------------------------------------------------------------------------

bool lives(pid_t pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

pid_t pidIn(int fd) {
    char text[24] = {};
    pid_t pid = 0;
    const ssize_t length = pread(fd, text, sizeof text - 1, 0);
    if (length > 0)
        std::from_chars(text, text + length, pid);
    return pid;
}

// Takes the owner lock. True also when there is no lock file: then `lock` is empty. False with errno; EBUSY: a
// supervisor has it, `supervisor` is its pid.
bool takeOwnerLock(local::Descriptor& lock, int& supervisor) {
    constexpr int tries = 100;
    const std::string path = appliancePath("/run/decoder/skelmor.lock");
    lock = local::Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!lock)
        return errno == ENOENT;
    for (int i = 0; i < tries; ++i) {
        if (flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK)
            return false;
        supervisor = pidIn(lock.get());
        if (lives(supervisor))
            break;
        // A player that was just forked by a killed supervisor has the lock, too, until it starts its program.
        const timespec pause{.tv_sec = 0, .tv_nsec = 10'000'000};
        nanosleep(&pause, nullptr);
    }
    errno = EBUSY;
    return false;
}

// The live owner of the event queue, for a root without a lock file; -1 for none.
int otherQueueOwner() {
    const int owner = libcommon::eventQueueOwner();
    return owner == getpid() ? -1 : owner;
}

// ---- Removing --------------------------------------------------------------------------------------------------

class Sweeper {
public:
    explicit Sweeper(Sweep& done) : done_(done) {
        struct stat folder {};
        const bool there = stat(appliancePath("/run/decoder").c_str(), &folder) == 0;
        folderOwner_ = there ? folder.st_uid : geteuid();
    }

    // Barriers first, because that kills players that still use the other objects.
    void run() {
        forEachEntry("/var/tmp",
                     [this](const std::string& path, std::string_view name) { barrier(path, name); });
        count(local::removeLeftEventQueue(), done_.queues);
        count(local::removeSemaphoreSet(), done_.semaphoreSets);
        const auto temporary = [this](const std::string& path, std::string_view name) {
            leftFile(path, name);
        };
        for (const char* folder : {"/run/decoder", "/run/decoder/display", "/etc/decoder"})
            forEachEntry(folder, temporary);
        forEachEntry("/run/decoder/source", [&](const std::string&, std::string_view name) {
            forEachEntry("/run/decoder/source/" + std::string(name), temporary);
        });
    }

    int error() const { return error_; }

private:
    template<class Act>
    static void forEachEntry(const std::string& folder, Act act) {
        std::error_code error; // a folder that is missing has nothing in it
        std::vector<fs::path> paths;
        for (fs::directory_iterator at(appliancePath(folder), error), end; !error && at != end;
             at.increment(error))
            paths.push_back(at->path());
        for (const fs::path& path : paths)
            act(path.string(), path.filename().string());
    }

    void count(int result, int& counter) {
        if (result < 0)
            noteFailure();
        else
            counter += result;
    }

    void noteFailure() {
        error_ = error_ == 0 ? errno : error_;
        ++done_.failures;
    }

    void failed(const char* what, const std::string& path) {
        logmsg(3, "Failed to %s %s. (errno=%d %s)", what, path.c_str(), errno, std::strerror(errno));
        noteFailure();
    }

    void remove(const std::string& path, int& counter) {
        if (unlink(path.c_str()) == 0)
            ++counter;
        else if (errno != ENOENT)
            failed("remove", path);
    }

    void barrier(const std::string& path, std::string_view name) {
        static constexpr std::string_view prefix = "barrier.";
        struct stat file {};
        pid_t pid = 0;
        if (!name.starts_with(prefix))
            return;
        const char* end = name.data() + name.size();
        const auto [last, error] = std::from_chars(name.data() + prefix.size(), end, pid);
        if (error != std::errc{} || last != end)
            return;
        const int queue = local::barrierQueueOf(path.c_str(), file);
        // Anybody may put a file into this folder. A barrier is made by the supervisor's user.
        if (!S_ISREG(file.st_mode) || (file.st_uid != geteuid() && file.st_uid != folderOwner_))
            return;
        const bool hasQueue = queue >= 0 && isQueueOf(queue, file);
        switch (local::killPlayer(pid, file, hasQueue)) {
        case local::PlayerEnd::none:
            break;
        case local::PlayerEnd::killed:
            ++done_.players;
            break;
        case local::PlayerEnd::failed:
            failed("kill the player of", path);
            return;
        }
        if (hasQueue && msgctl(queue, IPC_RMID, nullptr) == 0)
            ++done_.queues;
        else if (hasQueue && errno != EINVAL && errno != EIDRM)
            return failed("remove the queue of", path); // the file names the queue, so it stays
        remove(path, done_.barriers);
    }

    // Two files may have one key. The supervisor makes the queue right after the file.
    static bool isQueueOf(int queue, const struct stat& file) {
        constexpr time_t longest = 10;
        msqid_ds state{};
        if (msgctl(queue, IPC_STAT, &state) != 0)
            return errno == EACCES; // its removal fails, too, and is reported
        return state.msg_perm.cuid == file.st_uid && state.msg_ctime >= file.st_mtim.tv_sec - 1 &&
               state.msg_ctime <= file.st_mtim.tv_sec + longest;
    }

    void leftFile(const std::string& path, std::string_view name) {
        if (local::isLeftFile(path, name))
            remove(path, done_.files);
    }

    Sweep& done_;
    uid_t folderOwner_;
    int error_ = 0;
};

} // namespace

namespace libcommon {

int sweep(Sweep& done) {
    done = {};
    local::Descriptor lock;
    if (!takeOwnerLock(lock, done.supervisor)) {
        if (errno != EBUSY)
            logmsg(3, "Failed to take the owner lock. (errno=%d %s)", errno, std::strerror(errno));
        return -1;
    }
    done.supervisor = lock ? -1 : otherQueueOwner();
    if (done.supervisor > 0) {
        errno = EBUSY;
        return -1;
    }
    Sweeper sweeper(done);
    sweeper.run();
    errno = sweeper.error();
    return errno == 0 ? 0 : -1;
}

} // namespace libcommon
