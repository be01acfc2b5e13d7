// Keeps the monitor alive: runs what uses the display in a child process, and runs it again when it was lost.
//
// A lost display ends the program that uses it: Xlib exits, a driver may crash. So this process never touches the
// display. Its child, the shower, does. When the child has ended although nobody asked for that, the guard waits a
// moment and starts another one; the moments grow from a tenth of a second to two seconds and start again at a tenth
// after a child that showed something. A display that can't be opened at all is an error of the first start only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace screen {

// Why a shower ended: its exit status. Any other status, and a signal, means that it was lost.
enum class Ending : int {
    asked = 0,      // the operator or a signal ended it, or its time is over
    wrong = 2,      // it can't do what was asked for; the message is printed. The guard ends with 1
    noDisplay = 10, // the display can't be opened
    again = 11,     // the displays have changed: it begins again at once
};

// Tells the guard that the picture shows.
class Shown {
public:
    explicit Shown(int fd) : fd_(fd) {}
    void tell(); // once is enough; further calls do nothing

private:
    int fd_;
};

struct Attempt {
    std::string driver; // one of the drivers
    bool first = true;  // nothing has shown yet: errors are printed
    bool safe = false;  // an earlier shower with this driver crashed: use nothing but memory
};

// The child's work. Runs in a process of its own, with the signal mask of the guard's caller.
using Shower = std::function<Ending(const Attempt&, Shown&)>;

// Runs showers until one ended as asked, or SIGINT or SIGTERM came. `drivers`, best first, are tried in turn at each
// attempt; not empty. `lost` is called in the guard's process when a shower that showed something has ended although
// nobody asked for that; it may be null. No attempt begins after `until`, a time on gettimeusec()'s clock. `prepare` is
// called once, in the guard's process, before the first attempt, when the display may be used; it may be null. Returns
// the program's exit status: 0, or 1 when no driver could show anything at the first attempt. Called once, on the only
// thread.
//
// On a console (the only driver is KMSDRM), the guard takes the terminal of standard input (terminal.h). While another
// terminal is in front, no shower runs.
int runGuard(const std::vector<std::string>& drivers, const Shower& shower, const std::function<void()>& lost,
             std::int64_t until, const std::function<void()>& prepare = nullptr);

// Runs `work` in a child process and returns its exit status; -1 when it crashed, or did not end within `seconds`
// (it is killed then). For work with drivers that may crash.
int runApart(const std::function<int()>& work, int seconds);

} // namespace screen
