// A bare program that starts another one and sees it end. It links the libraries that the supervisor links, and nothing of
// the supervisor is in it.
//
//   bare_launcher launch KB PROGRAM    takes KB kilobytes of memory of its own, runs the shell command of the supervisor's
//                                      start, starts the program, ends with it
//   bare_launcher orders KB PROGRAM LIBRARY...
//                                      loads the libraries; then, for each line on standard input: "s" starts the program
//                                      and prints the time of the fork and its pid; "e" awaits its end, too; "k" kills it
//                                      and prints the times of the kill and of SIGCHLD
//
// Times are nanoseconds on the clock that never jumps.
#include <libcommon/clock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// ---- Process-wide: written by the handler of SIGCHLD, read by the main thread after it.
volatile long long endedAt = 0;

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

// SIGCHLD is let in only while this waits.
void awaitEnd(const sigset_t& waiting) {
    while (endedAt == 0)
        sigsuspend(&waiting);
    waitpid(-1, nullptr, 0);
}

void obey(char* program) {
    sigset_t blocked;
    sigset_t waiting;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    sigprocmask(SIG_BLOCK, &blocked, &waiting);
    std::signal(SIGCHLD, [](int) { endedAt = now(); });
    char line[16];
    pid_t pid = -1;
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
        endedAt = 0;
        const long long began = now();
        if (line[0] == 'k') {
            kill(pid, SIGKILL);
            awaitEnd(waiting);
            std::printf("%lld %lld\n", began, endedAt);
        } else {
            pid = start(program);
            std::printf("%lld %d\n", began, pid);
            if (line[0] == 'e')
                awaitEnd(waiting);
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
