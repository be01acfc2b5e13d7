#include "barrier/barrier_table.h"

#include "process/paths.h"
#include "process/signal_mask.h"

#include <libcommon/barriers.h>
#include <libcommon/log.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Maps pids to queue ids, in static memory: the shutdown handler uses the table after a crash, when nothing may be
// allocated or freed. Two players live at a time, so there is room for every entry that could still matter; when it is
// full, the oldest entry is replaced.
class Table {
public:
    // The queue id of the pid; null when it is not in the table.
    int* find(int pid) {
        for (std::size_t i = 0; i < count_; ++i)
            if (entries_[i].pid == pid)
                return &entries_[i].queue;
        return nullptr;
    }

    // The same; enters an unknown pid with queue id 0.
    int& operator[](int pid) {
        if (int* queue = find(pid))
            return *queue;
        if (count_ == entries_.size())
            eraseAt(0);
        entries_[count_] = {pid, 0};
        return entries_[count_++].queue;
    }

    void erase(int pid) {
        for (std::size_t i = 0; i < count_; ++i)
            if (entries_[i].pid == pid)
                return eraseAt(i);
    }

private:
    struct Entry {
        int pid;
        int queue;
    };

    void eraseAt(std::size_t at) {
        for (--count_; at < count_; ++at)
            entries_[at] = entries_[at + 1];
    }

    std::array<Entry, 256> entries_{};
    std::size_t count_ = 0;
};

// All process-wide state of this file.
// Main thread only, its shutdown handler included; empty at start.
constinit Table table;
// The pids of the most recent calls of createBarrier. Written by the main thread, read by any thread.
std::array<std::atomic<int>, 16> recentPlayers{};
std::size_t nextPlayer = 0; // main thread

constexpr int projectId = 0; // the players derive the same key
constexpr const char* barrierPrefix = "/var/tmp/barrier";

// Removes the barrier file without allocating: the shutdown handler calls this after a crash.
void removeFile(int pid) {
    const char* root = std::getenv("APPLIANCE_ROOT");
    std::array<char, PATH_MAX> name{};
    const int length =
        std::snprintf(name.data(), name.size(), "%s%s.%d", root == nullptr ? "" : root, barrierPrefix, pid);
    if (length > 0 && static_cast<std::size_t>(length) < name.size())
        std::remove(name.data());
}

// Without O_TRUNC, so that nothing is emptied before it was checked; with O_NONBLOCK, so that a FIFO does not make us
// wait for its reader.
bool makeFile(const char* name) {
    const int fd = open(name, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
    if (fd == -1)
        return false;
    struct stat file {};
    bool made = fstat(fd, &file) == 0;
    if (made && (!S_ISREG(file.st_mode) || file.st_nlink != 1 || file.st_uid != geteuid())) {
        errno = EEXIST;
        made = false;
    }
    made = made && ftruncate(fd, 0) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return made;
}

// `text` as one word for the shell, quoted only where the shell would change it.
std::string shellWord(const std::string& text) {
    const std::string plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=";
    if (text.find_first_not_of(plain) == std::string::npos)
        return text;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// popen() with SIGCHLD unblocked, because a shell inherits the mask. The SIGCHLD handler touches nothing here: it only
// reaps players. SIGINT stays blocked, so that the shell is not interrupted by one that is meant for the supervisor.
FILE* readCommand(const std::string& command) {
    sigset_t child;
    sigset_t saved;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    pthread_sigmask(SIG_UNBLOCK, &child, &saved);
    FILE* output = popen(command.c_str(), "r");
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    errno = error;
    return output;
}

// Waits for the command's output or its end with signals let in: a file system may not answer for a long time.
void waitForOutput(int fd) {
    const OpenSignals open;
    pollfd output{fd, POLLIN, 0};
    while (poll(&output, 1, -1) == -1 && errno == EINTR) {
    }
}

// `line` is a barrier file's name and one more character, the newline. A barrier without a queue is left alone.
void sweep(std::string line) {
    line.pop_back();
    const std::size_t dot = line.rfind('.');
    if (dot == std::string::npos)
        return;
    const int pid = static_cast<int>(std::strtol(line.c_str() + dot + 1, nullptr, 10));
    const int queue = getBarrierIPC(pid);
    if (queue == -1)
        return;
    logmsg(7, "Found sprawling barrier. Removing barrier for PID %d", pid);
    if (msgctl(queue, IPC_RMID, nullptr) == -1)
        logmsg(3, "Could not remove Barrier msg queue for pid:%d queueid:%d (errno=%d %s)", pid, queue, errno,
               std::strerror(errno));
    if (std::remove(line.c_str()) == -1)
        logmsg(3, "Failed to remove file %s", line.c_str());
}

} // namespace

std::string barrierFileName(int pid) {
    return underApplianceRoot(barrierPrefix) + "." + std::to_string(pid);
}

int createBarrier(int pid) {
    recentPlayers[nextPlayer++ % recentPlayers.size()] = pid;
    const std::string name = barrierFileName(pid);
    if (!makeFile(name.c_str())) {
        logmsg(3, "Failed to create %s. (errno=%d %s)\n", name.c_str(), errno, std::strerror(errno));
        return -1;
    }
    const key_t key = ftok(name.c_str(), projectId);
    if (key == -1) {
        logmsg(3, "Failed to ftok. (errno=%d %s)\n", errno, std::strerror(errno));
        return -1;
    }
    const int queue = msgget(key, IPC_CREAT | 0666);
    if (queue == -1) {
        logmsg(3, "Failed to msgget. (errno=%d %s) filename:%s key:%d\n", errno, std::strerror(errno),
               name.c_str(), key);
        return -1;
    }
    table[pid] = queue;
    return 0;
}

int removeBarrier(int pid) {
    removeFile(pid);
    if (msgctl(table[pid], IPC_RMID, nullptr) == -1) {
        logmsg(3, "Could not remove Barrier msg queue for pid:%d (errno=%d %s)", pid, errno,
               std::strerror(errno));
        return -1;
    }
    table.erase(pid);
    return 0;
}

int dropBarrier(int pid) {
    removeFile(pid);
    const int* found = table.find(pid);
    if (found == nullptr)
        return -1;
    const int queue = *found;
    table.erase(pid);
    return msgctl(queue, IPC_RMID, nullptr) == 0 ? 0 : -1;
}

int removeStaleBarriers() {
    const std::string command = "ls -1 " + shellWord(underApplianceRoot(barrierPrefix)) + ".*";
    FILE* listing = readCommand(command);
    if (listing == nullptr) {
        logmsg(3, "Couldn't popen(\"%s\") (errno=%d %s)", command.c_str(), errno, std::strerror(errno));
        return -1;
    }
    std::array<char, 1024> line{};
    waitForOutput(fileno(listing));
    while (std::fgets(line.data(), static_cast<int>(line.size()), listing) != nullptr) {
        sweep(line.data());
        waitForOutput(fileno(listing));
    }
    pclose(listing);
    return 0;
}

int barrierQueue(int pid) {
    return table[pid];
}

bool isPlayer(int pid) {
    for (const std::atomic<int>& player : recentPlayers)
        if (player == pid && pid != 0) // 0: a place that is still free
            return true;
    return false;
}
