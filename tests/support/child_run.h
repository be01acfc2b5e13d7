// Runs a piece of a test in a process of its own, because it ends the process or changes it permanently.
#pragma once

#include <array>
#include <cstdio>
#include <functional>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

struct ChildRun {
    int waitStatus = 0;
    std::string out; // its standard output
    std::string err; // its standard error

    bool exitedWith(int status) const { return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == status; }
};

inline constexpr int bodyReturned = 99; // exit status of a child whose body returned

// Forks (the test must have no other threads yet), runs `body` in the child and waits for the child's end.
inline ChildRun runInChild(const std::function<void()>& body) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    ChildRun run;
    if (pipe(out.data()) != 0 || pipe(err.data()) != 0)
        return run;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (const int fd : {out[0], out[1], err[0], err[1]})
            close(fd);
        body();
        std::fflush(nullptr);
        _exit(bodyReturned);
    }
    close(out[1]);
    close(err[1]);
    std::array<pollfd, 2> sources{{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
    while (sources[0].fd != -1 || sources[1].fd != -1) {
        poll(sources.data(), sources.size(), -1);
        for (pollfd& source : sources) {
            if (source.fd == -1 || source.revents == 0)
                continue;
            std::array<char, 4096> bytes{};
            const ssize_t got = read(source.fd, bytes.data(), bytes.size());
            if (got > 0) {
                (&source == &sources[0] ? run.out : run.err)
                    .append(bytes.data(), static_cast<std::size_t>(got));
                continue;
            }
            close(source.fd);
            source.fd = -1;
        }
    }
    waitpid(pid, &run.waitStatus, 0);
    return run;
}
