#include "appliance/screen/monitor/guard.h"

#include "appliance/screen/monitor/terminal.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <strings.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace screen {
namespace {

constexpr int shortestPauseMs = 100;
constexpr int longestPauseMs = 2000;
constexpr int lookMs = 500;       // how often a child is looked at when no signal says that it ended
constexpr int patienceMs = 3'000; // a child that was asked to end is killed after this time

sigset_t guardedSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGCHLD, Terminal::leaveSignal, Terminal::returnSignal})
        sigaddset(&set, number);
    return set;
}

// The guard's signals are blocked while it works, so that it takes them only where it waits.
class BlockedSignals {
public:
    BlockedSignals() {
        const sigset_t set = guardedSignals();
        sigprocmask(SIG_BLOCK, &set, &before_);
    }
    ~BlockedSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

    void restoreInChild() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

    // Waits for one of the signals. 0: none came in that time.
    static int wait(int ms) {
        const sigset_t set = guardedSignals();
        const timespec timeout{ms / 1000, ms % 1000 * 1'000'000L};
        return std::max(sigtimedwait(&set, nullptr, &timeout), 0);
    }

private:
    sigset_t before_{};
};

struct Child {
    pid_t pid = -1;
    int shown = -1; // the reading end of the pipe; the child writes a byte when it shows
};

// In the child: it ends with the guard, and nothing of the guard's signals is left.
void becomeChild(const BlockedSignals& signals, pid_t guard) {
    signals.restoreInChild();
    std::signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != guard)
        _exit(static_cast<int>(Ending::asked));
}

std::optional<Child> start(const BlockedSignals& signals, const Shower& shower, const Attempt& attempt) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return std::nullopt;
    const pid_t guard = getpid();
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        becomeChild(signals, guard);
        Shown shown(ends[1]);
        const Ending ending = shower(attempt, shown);
        std::fflush(nullptr);
        _exit(static_cast<int>(ending));
    }
    close(ends[1]);
    if (pid > 0)
        return Child{pid, ends[0]};
    close(ends[0]);
    return std::nullopt;
}

struct Ended {
    int status = 0;     // wait status
    bool asked = false; // by a signal to the guard
    bool left = false;  // because the operator changes to another terminal
    bool shown = false; // it has shown the picture

    bool with(Ending ending) const {
        return WIFEXITED(status) && WEXITSTATUS(status) == static_cast<int>(ending);
    }
    bool crashed() const { return WIFSIGNALED(status); }
};

Ended await(const Child& child) {
    Ended ended;
    std::int64_t killAt = 0;
    while (waitpid(child.pid, &ended.status, WNOHANG) == 0) {
        const int number = BlockedSignals::wait(lookMs);
        ended.asked = ended.asked || number == SIGINT || number == SIGTERM;
        ended.left = ended.left || number == Terminal::leaveSignal;
        if ((ended.asked || ended.left) && killAt == 0) {
            killAt = gettimeusec() + 1000 * patienceMs;
            kill(child.pid, SIGTERM);
        }
        if (killAt != 0 && gettimeusec() > killAt)
            kill(child.pid, SIGKILL);
    }
    char byte = 0;
    ended.shown = read(child.shown, &byte, 1) == 1;
    close(child.shown);
    return ended;
}

std::string howItEnded(const Ended& ended) {
    if (ended.crashed())
        return std::string("it crashed: ") + strsignal(WTERMSIG(ended.status));
    return ended.with(Ending::noDisplay) ? "it can't be opened"
                                         : "exit status " + std::to_string(WEXITSTATUS(ended.status));
}

// The terminal of a console belongs to a desktop if there is one, even if this program was started from it.
int terminalFor(const std::vector<std::string>& drivers) {
    return drivers.size() == 1 && strcasecmp(drivers[0].c_str(), "KMSDRM") == 0 ? STDIN_FILENO : -1;
}

// What the guard knows from one attempt to the next.
class Guard {
public:
    Guard(const std::vector<std::string>& drivers, const Shower& shower)
        : drivers_(drivers), shower_(shower), terminal_(terminalFor(drivers)), safe_(drivers.size(), false) {}

    // Waits until the terminal is in front. False: a signal asked for the end, or the time is over.
    bool waitForFront(std::int64_t until);

    // The program's exit status, when it is over.
    std::optional<int> attempt();

    bool hasShown() const { return shown_; } // at the last attempt

    // Waits before the next attempt. False: a signal asked for the end.
    bool pause();

private:
    bool take(int number);
    std::optional<int> tryDriver(std::size_t driver);
    std::optional<int> judge(std::size_t driver, const Ended& ended);

    const std::vector<std::string>& drivers_;
    const Shower& shower_;
    BlockedSignals signals_;
    Terminal terminal_;      // after the signals: they must be blocked
    std::vector<bool> safe_; // the drivers that crashed
    bool everShown_ = false;
    bool shown_ = false;   // the last shower has shown something
    bool waiting_ = false; // the loss was logged
    int pauseMs_ = 0;
};

// Takes a signal while no shower runs. False: it asks for the end.
bool Guard::take(int number) {
    if (number == Terminal::leaveSignal)
        terminal_.leave();
    else if (number == Terminal::returnSignal)
        terminal_.comeBack();
    return number != SIGINT && number != SIGTERM;
}

bool Guard::waitForFront(std::int64_t until) {
    while (!terminal_.inFront()) {
        if (!take(BlockedSignals::wait(lookMs)) || gettimeusec() > until)
            return false;
    }
    return true;
}

// Decides after the end of a shower. Nothing: the next driver is tried.
std::optional<int> Guard::judge(std::size_t driver, const Ended& ended) {
    everShown_ = everShown_ || ended.shown;
    if (ended.left && !ended.asked) {
        pauseMs_ = 0;
        return std::nullopt;
    }
    if (ended.asked || ended.with(Ending::asked))
        return 0;
    if (ended.with(Ending::wrong))
        return 1;
    if (ended.crashed())
        safe_[driver] = true;
    if (ended.shown) {
        waiting_ = false;
        pauseMs_ = ended.with(Ending::again) ? 0 : shortestPauseMs;
    }
    if (everShown_ && !waiting_) {
        logmsg(6, "The display is lost or has changed (%s, %s); waiting for it", drivers_[driver].c_str(),
               howItEnded(ended).c_str());
        waiting_ = true;
    } else if (!everShown_ && ended.crashed()) {
        std::fprintf(stderr, "decoder-monitor: the display driver \"%s\" crashed: %s\n",
                     drivers_[driver].c_str(), strsignal(WTERMSIG(ended.status)));
    }
    return std::nullopt;
}

// One shower with that driver. The program's exit status, when it is over.
std::optional<int> Guard::tryDriver(std::size_t driver) {
    const auto child = start(signals_, shower_, {drivers_[driver], !everShown_, safe_[driver]});
    if (!child) {
        logmsg(3, "The monitor can't start a process (errno=%d %s)", errno, std::strerror(errno));
        return std::nullopt;
    }
    const Ended ended = await(*child);
    shown_ = ended.shown;
    if (ended.left)
        terminal_.leave();
    return judge(driver, ended);
}

std::optional<int> Guard::attempt() {
    const int before = pauseMs_;
    for (std::size_t driver = 0; driver < drivers_.size(); ++driver) {
        const bool wasSafe = safe_[driver];
        std::optional<int> status = tryDriver(driver);
        // A driver that crashed may work without the graphics processor.
        if (!status && !shown_ && safe_[driver] && !wasSafe)
            status = tryDriver(driver);
        if (status || shown_ || !terminal_.inFront())
            return status;
    }
    if (!everShown_)
        return 1;
    pauseMs_ = std::clamp(2 * before, shortestPauseMs, longestPauseMs);
    return std::nullopt;
}

bool Guard::pause() {
    const std::int64_t until = gettimeusec() + std::int64_t{1000} * pauseMs_;
    for (std::int64_t left = until - gettimeusec(); left > 0; left = until - gettimeusec()) {
        if (!take(BlockedSignals::wait(static_cast<int>(left / 1000 + 1))))
            return false;
    }
    return true;
}

} // namespace

void Shown::tell() {
    if (fd_ < 0)
        return;
    // The pipe is empty, so there is room; a guard that has ended reads nothing.
    if (write(fd_, "S", 1) != 1)
        logmsg(7, "The monitor's guard has ended");
    close(fd_);
    fd_ = -1;
}

int runGuard(const std::vector<std::string>& drivers, const Shower& shower, const std::function<void()>& lost,
             std::int64_t until, const std::function<void()>& prepare) {
    Guard guard(drivers, shower);
    if (prepare != nullptr && guard.waitForFront(until))
        prepare();
    while (guard.waitForFront(until) && gettimeusec() < until) {
        if (const auto status = guard.attempt())
            return *status;
        if (guard.hasShown() && lost != nullptr)
            lost();
        if (!guard.pause())
            break;
    }
    return 0;
}

int runApart(const std::function<int()>& work, int seconds) {
    const BlockedSignals signals;
    const auto child =
        start(signals, [&](const Attempt&, Shown&) { return static_cast<Ending>(work()); }, {});
    if (!child)
        return -1;
    int status = 0;
    const std::int64_t end = gettimeusec() + std::int64_t{1'000'000} * seconds;
    while (waitpid(child->pid, &status, WNOHANG) == 0) {
        if (gettimeusec() > end) {
            kill(child->pid, SIGKILL);
            waitpid(child->pid, &status, 0);
            break;
        }
        usleep(5000);
    }
    close(child->shown);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace screen
