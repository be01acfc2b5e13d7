#include "tests/appliance/isolation.h"

#include "tests/appliance/process.h"
#include "tests/fakes/network_namespace.h"

#include <algorithm>
#include <filesystem>
#include <sched.h>
#include <sstream>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace appliance {

namespace {

bool enterNamespaces() {
    return enterNetworkNamespace().empty() && unshare(CLONE_NEWIPC) == 0;
}

// A child tries it first: a failure after the first step would leave this process without its user.
bool isAllowed() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(enterNamespaces() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

// The rows of a file of /proc/sysvipc, each as its numbers.
std::vector<std::vector<long>> ipcTable(const std::string& name) {
    std::istringstream file(readFile("/proc/sysvipc/" + name));
    std::vector<std::vector<long>> rows;
    std::string line;
    std::getline(file, line); // the heading
    while (std::getline(file, line)) {
        std::istringstream columns(line);
        std::vector<long> row;
        for (long value = 0; columns >> value;) {
            row.push_back(value);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

constexpr std::size_t idColumn = 1;
constexpr std::size_t messageCountColumn = 4;

std::vector<std::string> ids(const std::string& table, const std::string& what) {
    std::vector<std::string> all;
    for (const std::vector<long>& row : ipcTable(table)) {
        all.push_back(what + ' ' + std::to_string(row.at(idColumn)));
    }
    return all;
}

} // namespace

bool isolate() {
    static const bool done = isAllowed() && enterNamespaces();
    return done;
}

std::vector<std::string> queues() {
    return ids("msg", "queue");
}

std::vector<std::string> semaphoreSets() {
    return ids("sem", "semaphores");
}

void removeQueues() {
    for (const std::vector<long>& row : ipcTable("msg")) {
        msgctl(static_cast<int>(row.at(idColumn)), IPC_RMID, nullptr);
    }
}

void removeSemaphoreSets() {
    for (const std::vector<long>& row : ipcTable("sem")) {
        semctl(static_cast<int>(row.at(idColumn)), 0, IPC_RMID);
    }
}

int queuedMessages() {
    long count = 0;
    for (const std::vector<long>& row : ipcTable("msg")) {
        count += row.at(messageCountColumn);
    }
    return static_cast<int>(count);
}

std::vector<std::string> processesUnder(const std::string& root) {
    std::vector<std::string> found;
    const std::string wanted = "APPLIANCE_ROOT=" + root + '\0';
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string pid = entry.path().filename();
        if (!std::ranges::all_of(pid, [](char c) { return c >= '0' && c <= '9'; }) ||
            pid == std::to_string(getpid())) {
            continue;
        }
        const std::string environment = '\0' + readFile(entry.path() / "environ");
        if (environment.find('\0' + wanted) != std::string::npos) {
            found.push_back(pid + ' ' + readFile(entry.path() / "comm"));
        }
    }
    return found;
}

} // namespace appliance
