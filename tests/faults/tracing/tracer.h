// A program under ptrace: what it asks the kernel for, and a fault at one place of its run.
//
// A Traced program runs under a thread of its own. That thread stops the program before and after each system call and
// asks the observer what to do. The observer may let the call go on, make it fail without being carried out, kill the
// program, or let it crash. The program's own threads are followed, its child processes are not: they run freely.
//
// Only on x86-64; possible() says whether it works here.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace faults {

// A stop of one thread at one system call.
struct Call {
    pid_t process = 0;
    pid_t thread = 0;
    bool entry = true; // before the call; false: after it, with its result
    std::uint64_t number = 0;
    std::uint64_t arguments[6]{};
    std::int64_t result = 0; // only after the call; -errno for a failure

    bool byMain() const { return process == thread; }
};

struct Deed {
    enum class Kind {
        goOn,
        fail,  // only before a call: it is not carried out (close is) and returns -value
        kill,  // SIGKILL
        crash, // the thread's next instruction is at address 0
        signal // the process gets the signal `value`
    };
    Kind kind = Kind::goOn;
    int value = 0;
    int steps = 0; // crash and signal: so many instructions later
};

// Called by the tracing thread.
using Observer = std::function<Deed(const Call&)>;

// The place of a function: the entry of `function` for the `hit`-th time by the main thread, counted from arm() on.
struct AtFunction {
    const void* function = nullptr; // in a library that this program has loaded, too
    int hit = 1;
    Deed deed;
};

class Traced {
public:
    static bool possible();

    // Starts `arguments[0]` with these changes of the environment; its output is appended to `output`. Throws
    // std::runtime_error when it can't be started.
    Traced(std::vector<std::string> arguments, std::map<std::string, std::string> environment,
           std::string output, Observer observer);
    // Kills it.
    ~Traced();
    Traced(const Traced&) = delete;
    Traced& operator=(const Traced&) = delete;

    pid_t pid() const { return pid_; }

    // From now on the main thread stops at this function. At most once.
    void arm(const AtFunction& place);

    // The wait status; nothing when it did not end within so many seconds.
    std::optional<int> waitForEnd(double seconds);
    // True when a deed other than goOn was done, its steps included.
    bool acted() const { return acted_; }
    // The library and the place in it where the program was then, as "libc.so.6+0x1234"; "" before. Only after
    // acted().
    std::string place() const { return place_; }
    // Whether the crash came while its thread had SIGSEGV blocked: then the kernel ends the program at once.
    bool crashedBlocked() const { return crashedBlocked_; }
    // Seconds on the clock that never jumps, when it acted.
    double actedAt() const { return actedAt_; }

private:
    struct Thread {
        bool known = false;
        bool inCall = false;
        Call call;
        std::optional<Deed> failing; // the call under way is to fail
        std::optional<Deed> coming;  // after some more instructions
    };

    void trace(const std::vector<std::string>& arguments,
               const std::map<std::string, std::string>& environment, const std::string& output);
    void follow();
    void handle(pid_t thread, int status);
    void handleTrap(pid_t thread, int status);
    void handleCall(pid_t thread);
    void finishFailing(pid_t thread);
    bool readCall(pid_t thread);
    void step(pid_t thread);
    void setBreakpoint();
    bool isBreakpoint(pid_t thread);
    void go(pid_t thread, int signal);
    void apply(pid_t thread, const Deed& deed);
    void carryOut(pid_t thread, const Deed& deed);
    void notePlace(pid_t thread);

    Observer observer_;
    std::map<pid_t, Thread> threads_;
    std::atomic<pid_t> pid_{-1};
    std::atomic<bool> failed_{false};
    std::atomic<bool> ended_{false};
    std::atomic<bool> acted_{false};
    std::atomic<bool> armed_{false};
    AtFunction function_;
    bool breakpointSet_ = false;
    int hits_ = 0;
    int status_ = 0;
    std::string place_;
    double actedAt_ = 0;
    bool crashedBlocked_ = false;
    pid_t crashing_ = 0; // crashes at the end of the system call that it is about to make
    std::thread thread_;
};

// A text of the program's memory, of at most 4095 characters.
std::string textAt(pid_t process, std::uint64_t address);

// What the call is about, as "openat /run/decoder/info.conf" or "read info.conf"; `root` is taken away from paths and
// numbers of processes are replaced by "N", so that two runs have the same texts.
std::string describe(const Call& call, const std::string& root);
// The name of a system call, or its number.
std::string callName(std::uint64_t number);

double secondsNow(); // on the clock that never jumps

} // namespace faults
