#include "appliance/players/fake_supervisor.h"

#include <libcommon/barriers.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

namespace player {
namespace {

namespace fs = std::filesystem;

// The appliance of this process: libcommon reads its root once.
class Appliance {
public:
    Appliance() {
        char folder[] = "/tmp/players-XXXXXX";
        root = mkdtemp(folder);
        for (const char* needed : {"/var/tmp", "/etc/decoder", "/run/decoder"})
            fs::create_directories(root + needed);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        setenv("LIBCOMMON_LOG", (root + "/log").c_str(), 1);
    }
    ~Appliance() {
        if (owner == getpid())
            fs::remove_all(root);
    }
    Appliance(const Appliance&) = delete;
    Appliance& operator=(const Appliance&) = delete;
    std::string root;
    const pid_t owner = getpid();
};

const Appliance& appliance() {
    static const Appliance one;
    return one;
}

std::string barrierFile(pid_t pid) {
    return appliance().root + "/var/tmp/barrier." + std::to_string(pid);
}

int statusOf(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -WTERMSIG(waitStatus);
}

[[noreturn]] void becomePlayer(const std::string& program, std::vector<std::string>& arguments, int gate) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    char go = 0;
    if (read(gate, &go, 1) != 1)
        _exit(13);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(13);
}

} // namespace

FakeSupervisor::FakeSupervisor() {
    fs::remove_all(root() + "/run/decoder");
    fs::create_directories(root() + "/run/decoder");
    fs::remove(root() + "/etc/decoder/decoder.conf");
    if (initEventQueue() != 0)
        std::abort();
    clearEventQueue();
    listener_ = std::thread(&FakeSupervisor::listen, this);
}

FakeSupervisor::~FakeSupervisor() {
    while (!barriers_.empty()) {
        const pid_t pid = barriers_.begin()->first;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        forget(pid);
    }
    removeQueue();
}

const std::string& FakeSupervisor::root() {
    return appliance().root;
}

void FakeSupervisor::setParameters(const std::string& text) {
    std::ofstream(root() + "/etc/decoder/decoder.conf") << text;
}

std::string FakeSupervisor::log() {
    std::ifstream file(root() + "/log");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void FakeSupervisor::listen() {
    Event event{};
    while (waitEvent(&event) == 0 && event.id != EID_TIMEOUT) {
        if (event.id != EID_BARRIER)
            continue;
        const std::lock_guard guard(lock_);
        ++arrivals_[{event.value1, event.value2}];
        news_.notify_all();
    }
}

pid_t FakeSupervisor::start(const std::string& program, std::vector<std::string> arguments) {
    int gate[2];
    if (pipe2(gate, O_CLOEXEC) != 0)
        return -1;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
        becomePlayer(program, arguments, gate[0]);
    std::ofstream(barrierFile(pid)).flush();
    // Two files may give the same key (it holds 16 bits of a file's number); here that would only confuse.
    const int queue = msgget(ftok(barrierFile(pid).c_str(), 0), IPC_CREAT | 0666);
    {
        const std::lock_guard guard(lock_);
        barriers_[pid] = queue;
        arrivals_.erase({pid, 0});
        arrivals_.erase({pid, 1});
    }
    const bool opened = write(gate[1], "g", 1) == 1;
    close(gate[0]);
    close(gate[1]);
    return opened ? pid : -1;
}

bool FakeSupervisor::hasArrived(pid_t pid, int barrier, int times) {
    const std::lock_guard guard(lock_);
    return arrivals_[{pid, barrier}] >= times;
}

bool FakeSupervisor::arrived(pid_t pid, int barrier, int times) {
    std::unique_lock guard(lock_);
    return news_.wait_for(guard, patience, [&] { return arrivals_[{pid, barrier}] >= times; });
}

void FakeSupervisor::release(int barrier, const std::vector<pid_t>& pids) {
    for (const pid_t pid : pids) {
        libcommon::BarrierRelease release{};
        release.type = 7;
        release.supervisorPid = getpid();
        release.barrierId = barrier;
        msgsnd(barriers_[pid], &release, 52, 0);
    }
}

std::optional<int> FakeSupervisor::end(pid_t pid, std::chrono::milliseconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            forget(pid);
            return statusOf(status);
        }
        if (std::chrono::steady_clock::now() > until)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool FakeSupervisor::running(pid_t pid) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

bool FakeSupervisor::letShow(pid_t pid) {
    if (!arrived(pid, 0))
        return false;
    release(0, {pid});
    if (!arrived(pid, 1))
        return false;
    release(1, {pid});
    return true;
}

void FakeSupervisor::removeQueue() {
    if (std::exchange(queueRemoved_, true))
        return;
    // The listener ends first: waitEvent() does not return after the queue was removed.
    Event last{};
    last.id = EID_TIMEOUT;
    sendEvent(&last);
    listener_.join();
    removeEventQueue();
}

void FakeSupervisor::removeBarrier(pid_t pid) {
    fs::remove(barrierFile(pid));
    msgctl(barriers_[pid], IPC_RMID, nullptr);
}

void FakeSupervisor::forget(pid_t pid) {
    removeBarrier(pid);
    const std::lock_guard guard(lock_);
    barriers_.erase(pid);
}

} // namespace player
