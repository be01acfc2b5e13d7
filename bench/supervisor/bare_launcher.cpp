// A bare program that starts another one and sees it end. It links the libraries that the supervisor links, and nothing of
// the supervisor is in it.
//
//   bare_launcher launch KB PROGRAM    takes KB kilobytes of memory of its own, runs the shell command of the supervisor's
//                                      start, starts the program, ends with it
//   bare_launcher orders KB PROGRAM LIBRARY...
//                                      loads the libraries; then, for each line on standard input: "s" starts the program
//                                      and prints the time of the fork and its pid; "e" awaits its end, too; "k" kills it
//                                      and prints the times of the kill, of SIGCHLD, and of its arrival in the main thread
//                                      by the way of the supervisor's events: a System V queue, a thread that takes from
//                                      it, a condition variable
//
// Times are nanoseconds on the clock that never jumps.
#include <libcommon/clock.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <mutex>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// ---- Process-wide. The queue is made before the handler of SIGCHLD uses it. The time is written by the handler and read
// by the main thread after it.
int deaths = -1;
volatile long long endedAt = 0;

struct Message {
    long type = 1;
    char words[52]{}; // as long as an event
};

long long now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

pid_t start(char* program) {
    const pid_t pid = fork();
    if (pid == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        char* arguments[] = {program, nullptr};
        execv(program, arguments);
        _exit(13);
    }
    return pid;
}

// The command with which the supervisor looks for barriers that an earlier one has left.
void listBarriers() {
    FILE* listing = popen("ls -1 /var/tmp/barrier.* 2>/dev/null", "r");
    while (listing != nullptr && std::fgetc(listing) != EOF) {
    }
    if (listing != nullptr)
        pclose(listing);
}

void noteDeath(int) {
    endedAt = now();
    waitpid(-1, nullptr, 0);
    Message message;
    msgsnd(deaths, &message, sizeof message.words, 0);
}

// Takes deaths from the queue and wakes the main thread.
class Taker {
public:
    Taker() {
        deaths = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
        sigemptyset(&child_);
        sigaddset(&child_, SIGCHLD);
        sigprocmask(SIG_BLOCK, &child_, nullptr); // the thread inherits it
        thread_ = std::thread([this] { run(); });
    }
    ~Taker() {
        msgctl(deaths, IPC_RMID, nullptr);
        thread_.join();
    }
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;

    // Lets SIGCHLD in only while it waits. The time when it woke up.
    long long awaitDeath() {
        std::unique_lock lock(mutex_);
        sigprocmask(SIG_UNBLOCK, &child_, nullptr);
        arrived_.wait(lock, [this] { return count_ > 0; });
        const long long woken = now();
        sigprocmask(SIG_BLOCK, &child_, nullptr);
        --count_;
        return woken;
    }

private:
    void run() {
        Message message;
        while (msgrcv(deaths, &message, sizeof message.words, 0, 0) >= 0) {
            const std::lock_guard lock(mutex_);
            ++count_;
            arrived_.notify_one();
        }
    }

    sigset_t child_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    int count_ = 0; // guarded by mutex_
    std::thread thread_;
};

void obey(char* program) {
    Taker taker;
    std::signal(SIGCHLD, noteDeath);
    char line[16];
    pid_t pid = -1;
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
        const long long began = now();
        if (line[0] == 'k') {
            kill(pid, SIGKILL);
            const long long arrived = taker.awaitDeath();
            std::printf("%lld %lld %lld\n", began, endedAt, arrived);
        } else {
            pid = start(program);
            std::printf("%lld %d 0\n", began, pid);
            if (line[0] == 'e')
                taker.awaitDeath();
        }
        std::fflush(stdout);
    }
    if (pid > 0)
        kill(pid, SIGKILL);
}

} // namespace

int main(int argc, char** argv) {
    const bool obeys = argc > 1 && std::strcmp(argv[1], "orders") == 0;
    if (argc < 4) {
        std::fputs("usage: bare_launcher launch|orders KB PROGRAM [LIBRARY...]\n", stderr);
        return 2;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    gettimeusec(); // links the library
    std::vector<char> memory(static_cast<std::size_t>(std::atol(argv[2])) * 1024);
    for (std::size_t i = 0; i < memory.size(); i += 4096)
        memory[i] = 1;
    if (obeys) {
        for (int i = 4; i < argc; ++i)
            dlopen(argv[i], RTLD_NOW);
        obey(argv[3]);
    } else {
        listBarriers();
        waitpid(start(argv[3]), nullptr, 0);
    }
    return memory.empty() ? 0 : memory[0] - 1;
}
