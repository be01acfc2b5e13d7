#include "barrier/barrier_table.h"

#include "process/paths.h"

#include <libcommon/barriers.h>
#include <libcommon/log.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

// All process-wide state of this file: pid to queue id. Main thread alone, the shutdown handler included;
// empty at start, never destroyed, because that handler ends the process.
std::map<int, int>& table() {
    static std::map<int, int>& queues = *new std::map<int, int>;
    return queues;
}

constexpr int projectId = 0; // the players derive the same key

std::string barrierPath() {
    return underApplianceRoot("/var/tmp/barrier");
}

// `text` as one word for the shell; as it stands where the shell finds nothing special in it.
std::string shellWord(const std::string& text) {
    const std::string plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=";
    if (text.find_first_not_of(plain) == std::string::npos)
        return text;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// popen() with SIGCHLD let in, because a shell inherits the mask. Its handler touches nothing here: it only
// looks after players. SIGINT stays out, so that none is swallowed by the shell.
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

// A line of the listing: a barrier file's name and the last character that ended it. A barrier without a
// queue is left alone.
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
    return barrierPath() + "." + std::to_string(pid);
}

int createBarrier(int pid) {
    const std::string name = barrierFileName(pid);
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd == -1) {
        logmsg(3, "Failed to create %s. (errno=%d %s)\n", name.c_str(), errno, std::strerror(errno));
        return -1;
    }
    close(fd);
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
    table()[pid] = queue;
    return 0;
}

int removeBarrier(int pid) {
    std::remove(barrierFileName(pid).c_str());
    if (msgctl(barrierQueue(pid), IPC_RMID, nullptr) == -1) {
        logmsg(3, "Could not remove Barrier msg queue for pid:%d (errno=%d %s)", pid, errno,
               std::strerror(errno));
        return -1;
    }
    table().erase(pid);
    return 0;
}

int dropBarrier(int pid) {
    std::remove(barrierFileName(pid).c_str());
    const auto found = table().find(pid);
    if (found == table().end())
        return -1;
    const int queue = found->second;
    table().erase(found);
    return msgctl(queue, IPC_RMID, nullptr) == 0 ? 0 : -1;
}

int removeStaleBarriers() {
    const std::string command = "ls -1 " + shellWord(barrierPath()) + ".*";
    FILE* listing = readCommand(command);
    if (listing == nullptr) {
        logmsg(3, "Couldn't popen(\"%s\") (errno=%d %s)", command.c_str(), errno, std::strerror(errno));
        return -1;
    }
    std::array<char, 1024> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), listing) != nullptr)
        sweep(line.data());
    pclose(listing);
    return 0;
}

int barrierQueue(int pid) {
    return table()[pid];
}
