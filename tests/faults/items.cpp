#include "tests/faults/items.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace faults {

namespace {

using Clock = std::chrono::steady_clock;

struct Running {
    long item = 0;
    pid_t pid = -1;
    int output = -1;
    Clock::time_point until;
    bool over = false;
};

std::string oneLine(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

[[noreturn]] void runHere(long number, int output, const std::function<void(long, Report&)>& item) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::FILE* to = fdopen(output, "w");
    Report report(to);
    try {
        item(number, report);
    } catch (const std::exception& error) {
        report.broken(error.what());
    }
    std::fflush(to);
    _exit(0);
}

Running start(long number, double limit, const std::function<void(long, Report&)>& item) {
    // A file, not a pipe: a process that an item left behind could keep a pipe open.
    char name[] = "/tmp/fault-item-XXXXXX";
    Running running;
    running.item = number;
    running.output = mkostemp(name, O_CLOEXEC);
    unlink(name);
    running.until = Clock::now() + std::chrono::milliseconds(static_cast<long>(limit * 1000));
    std::fflush(stdout);
    running.pid = fork();
    if (running.pid == 0) {
        runHere(number, running.output, item);
    }
    if (running.pid < 0) {
        throw std::runtime_error("no process for an item");
    }
    return running;
}

std::string contents(int file) {
    std::string text;
    char part[4096];
    lseek(file, 0, SEEK_SET);
    for (ssize_t got = 0; (got = read(file, part, sizeof part)) > 0;) {
        text.append(part, static_cast<std::size_t>(got));
    }
    close(file);
    return text;
}

void takeLine(Progress& progress, const std::string& line) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "broken") {
        progress.broken(line.substr(line.find(' ') + 1));
    } else if (kind == "note") {
        std::printf("item %ld: %s\n", progress.next(), line.substr(line.find(' ') + 1).c_str());
    } else {
        std::string name;
        double value = 0;
        words >> name >> value;
        kind == "max" ? progress.max(name, value) : progress.add(name, value);
    }
}

// Whether it has ended, or was ended because it took too long.
void look(Running& running) {
    int status = 0;
    if (waitpid(running.pid, &status, WNOHANG) == running.pid) {
        running.over = true;
    } else if (Clock::now() > running.until) {
        kill(running.pid, SIGKILL);
        waitpid(running.pid, &status, 0);
        running.over = true;
    }
    if (running.over && !(WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
        const std::string text = "broken the item's process took too long or crashed\n";
        (void)!write(running.output, text.data(), text.size());
    }
}

void take(Progress& progress, const Running& running) {
    std::istringstream lines(contents(running.output));
    for (std::string line; std::getline(lines, line);) {
        takeLine(progress, line);
    }
    progress.done();
}

} // namespace

void Report::line(const std::string& kind, const std::string& text) {
    std::fprintf(to_, "%s %s\n", kind.c_str(), oneLine(text).c_str());
    std::fflush(to_);
}

void runItems(Progress& progress, long total, int atOnce, double limit,
              const std::function<void(long, Report&)>& item) {
    std::vector<Running> running; // in order
    const long first = progress.next();
    long begun = first;
    const auto mayBegin = [&] {
        return progress.more() && (!progress.options().count || begun - first < *progress.options().count) &&
               begun < total;
    };
    while (mayBegin() || !running.empty()) {
        while (running.size() < static_cast<std::size_t>(atOnce) && mayBegin()) {
            running.push_back(start(begun++, limit, item));
        }
        for (Running& one : running) {
            if (!one.over) {
                look(one);
            }
        }
        while (!running.empty() && running.front().over) {
            take(progress, running.front());
            running.erase(running.begin());
        }
        usleep(2000);
    }
}

} // namespace faults
