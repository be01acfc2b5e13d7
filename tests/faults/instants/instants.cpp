// SIGINT and SIGSEGV to the supervisor at every instant: at the n-th system call, some instructions later, inside of
// malloc, stdio and the log, at a random time; during start, play, switches, floods of events and the shutdown itself.
//
// Even items send SIGINT, odd items crash the program or send SIGSEGV.
#include "tests/appliance/isolation.h"
#include "tests/faults/instants/plan.h"
#include "tests/faults/items.h"
#include "tests/faults/small_decoder.h"
#include "tests/faults/tracing/tracer.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using faults::Call;
using faults::Deed;
using faults::Plan;
using faults::Report;
using faults::SmallDecoder;
using faults::Traced;

constexpr long items = 2000;
constexpr int atOnce = 6;
constexpr double itemLimit = 150;
constexpr double reachLimit = 3; // seconds until the place of the plan is given up and the time decides
// From the signal to the end: half a second for each of two players, a second for each step that hangs after a crash,
// five for the rest; and much for a busy machine.
constexpr double endLimit = 25;

constexpr int eventConnected = 9;
constexpr int eventFlush = 10;
constexpr int eventSelect = 11;
constexpr int eventAlarm = 8;

// Counts calls from arm() on and answers with the deed at the right one.
class Counter {
public:
    explicit Counter(const Plan& plan) : plan_(plan) { counting_ = plan.scene == Plan::Scene::start; }

    void arm() { counting_ = true; }

    Deed operator()(const Call& call) {
        note(call);
        const bool counts = counting_ && plan_.place == Plan::Place::call &&
                            (call.byMain() || plan_.anyThread) && call.entry == plan_.atEntry;
        if (!counts || ++count_ != plan_.hit) {
            return {};
        }
        return plan_.deed;
    }

    bool handlersInstalled() const { return installed_; }

private:
    // The handlers are installed with SIGINT first and SIGSEGV next.
    void note(const Call& call) {
        if (!call.entry && call.arguments[0] == SIGSEGV && faults::callName(call.number) == "rt_sigaction") {
            installed_ = true;
        }
    }

    Plan plan_;
    std::atomic<bool> counting_{false};
    std::atomic<bool> installed_{false};
    int count_ = 0;
};

// What keeps the supervisor busy meanwhile.
class Load {
public:
    Load(const SmallDecoder& decoder, Plan::Scene scene)
        : thread_([this, &decoder, scene] {
              for (int i = 0; !over_ && i < 100000; ++i) {
                  act(decoder, scene, i);
              }
          }) {}
    ~Load() {
        over_ = true;
        thread_.join();
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    static void act(const SmallDecoder& decoder, Plan::Scene scene, int i) {
        switch (scene) {
        case Plan::Scene::start:
        case Plan::Scene::quiet:
        case Plan::Scene::shutdown:
            break;
        case Plan::Scene::flood:
            decoder.send(i % 3 == 0 ? eventFlush : i % 3 == 1 ? eventConnected : eventAlarm, 0);
            usleep(300);
            return;
        case Plan::Scene::switches:
            decoder.send(eventSelect, i % 2);
            usleep(30000);
            return;
        case Plan::Scene::detection:
            decoder.send(eventFlush);
            decoder.send(eventSelect, i % 2);
            decoder.press(i % 3 == 0 ? '2' : '1');
            usleep(15000);
            return;
        }
        usleep(5000);
    }

    std::atomic<bool> over_{false};
    std::thread thread_;
};

struct Run {
    SmallDecoder decoder;
    Plan plan;
    Counter counter;
    std::optional<Traced> traced;

    explicit Run(const Plan& what) : plan(what), counter(what) {
        traced.emplace(decoder.command(), decoder.environment(), decoder.output(),
                       [this](const Call& call) { return counter(call); });
    }
};

bool waitForDeed(Run& run, double seconds) {
    const double until = faults::secondsNow() + seconds;
    while (!run.traced->acted() && faults::secondsNow() < until && !run.traced->waitForEnd(0)) {
        usleep(300);
    }
    return run.traced->acted();
}

// Leads the run to its instant. The time of the signal; true in `byTime` when only the time decided.
double reach(Run& run, bool& byTime) {
    const Plan& plan = run.plan;
    const bool isLate = plan.scene != Plan::Scene::start;
    if (isLate && !run.decoder.plays(0, 25)) {
        throw std::runtime_error("it does not play at first: " + run.decoder.state());
    }
    std::optional<Load> load;
    if (isLate) {
        load.emplace(run.decoder, plan.scene);
    }
    if (plan.place == Plan::Place::function) {
        run.traced->arm({plan.function, plan.hit, plan.deed});
    }
    if (plan.scene == Plan::Scene::shutdown) {
        run.counter.arm();
        kill(run.traced->pid(), SIGINT);
    }
    run.counter.arm();
    byTime = plan.place == Plan::Place::time || !waitForDeed(run, reachLimit);
    if (!byTime) {
        return run.traced->actedAt();
    }
    usleep(static_cast<useconds_t>(plan.place == Plan::Place::time ? plan.microseconds : 0));
    kill(run.traced->pid(), plan.signal());
    return faults::secondsNow();
}

const char* const shutdownLines[] = {
    "[SHUTDOWN] Skelmor shutdown started!!!",  "[SHUTDOWN] Sending SIGINT to children...",
    "[SHUTDOWN] All children dead...",         "[SHUTDOWN] Removing barriers...",
    "[SHUTDOWN] Shutting down event queue...", "[SHUTDOWN] Closing log system..."};

bool logIsWhole(const std::string& log) {
    std::size_t at = 0;
    for (const char* line : shutdownLines) {
        at = log.find(line, at);
        if (at == std::string::npos) {
            return false;
        }
    }
    return true;
}

// How it should end.
enum class Way {
    handler,
    signal, // before the handlers are installed, and in moments in which the C library has SIGSEGV blocked
};

Way wayOf(const Run& run, bool handled) {
    return handled && !run.traced->crashedBlocked() ? Way::handler : Way::signal;
}

void checkEnd(Run& run, int status, Way way, double seconds, Report& report) {
    const bool byHandler = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    const bool bySignal = WIFSIGNALED(status) && WTERMSIG(status) == run.plan.signal();
    if (way == Way::signal ? !bySignal && !byHandler : !byHandler) {
        report.broken(run.plan.text() + ": its status is " + std::to_string(status) + " at " +
                      run.traced->place());
    }
    report.add(byHandler ? "ended-by-the-handler" : "ended-by-the-signal");
    if (!byHandler) {
        return;
    }
    const bool whole = logIsWhole(run.decoder.log());
    report.add(whole ? "logged-whole" : "logged-partly");
    // A line that takes longer than a second, on a busy machine or while its instructions are counted, is given up.
    if (!whole && run.plan.signal() == SIGINT && seconds + run.traced->stepSeconds() < 0.9) {
        report.broken(run.plan.text() + ": the log does not have all lines of the shutdown");
    }
}

// After a crash the file that was being written may stay, and what was being made: the barrier of a player, or at the
// start the event queue. The next start removes all that.
bool mayStay(const SmallDecoder::Leftovers& left, const Run& run) {
    const std::size_t eventQueues = run.plan.scene == Plan::Scene::start ? 1 : 0;
    return run.plan.signal() == SIGSEGV && left.processes.empty() && !left.semaphores &&
           left.queues.size() <= left.barriers.size() + eventQueues && left.barriers.size() <= 1;
}

void checkRemains(Run& run, Way way, Report& report) {
    const SmallDecoder::Leftovers left = run.decoder.leftovers();
    if (!left.none() && way == Way::handler) {
        report.add("left-for-the-next-start");
        if (!mayStay(left, run)) {
            report.broken(run.plan.text() + ": left behind:" + left.text() + " at " + run.traced->place());
        }
    }
    if (!run.decoder.hasBothSources()) {
        report.broken(run.plan.text() + ": the parameter file has lost something");
    }
    if (const std::string failure = faults::nextStartFails(run.decoder); !failure.empty()) {
        report.broken(run.plan.text() + ": " + failure);
    }
}

void countPlace(const Run& run, bool byTime, Report& report) {
    const std::string place = byTime ? "" : run.traced->place();
    const std::string library = place.substr(0, place.find_first_of("+-."));
    report.add(byTime ? "by-time" : "in-" + (library.empty() ? "unknown" : library));
    report.add(run.plan.signal() == SIGINT ? "sigint" : "sigsegv");
    if (run.plan.place == Plan::Place::function && !byTime) {
        report.add("inside-" + run.plan.functionName);
    }
}

void runItem(unsigned seed, long item, Report& report) {
    if (!appliance::isolate()) {
        throw std::runtime_error("no queues of its own");
    }
    Run run(faults::makePlan(seed, item));
    bool byTime = false;
    const double signalled = reach(run, byTime);
    const bool handled = run.counter.handlersInstalled();
    const std::optional<int> status = run.traced->waitForEnd(endLimit);
    countPlace(run, byTime, report);
    if (!status) {
        report.broken(run.plan.text() + ": it does not end, " + run.traced->place());
        return;
    }
    const double seconds = faults::secondsNow() - signalled;
    report.max("seconds-to-the-end-max", seconds);
    checkEnd(run, *status, wayOf(run, handled), seconds, report);
    checkRemains(run, wayOf(run, handled), report);
}

} // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = faults::readOptions(
        argc, argv, "Sends SIGINT and SIGSEGV to the supervisor at 2,000 instants, and looks how it ends.",
        status);
    if (!options) {
        return status;
    }
    if (!faults::canRunHere()) {
        std::printf("skipped: programs can't be traced here, or have no queues of their own\n");
        return 77;
    }
    faults::Progress progress(*options, items);
    const unsigned seed = options->seed;
    faults::runItems(progress, items, atOnce, itemLimit,
                     [seed](long item, Report& report) { runItem(seed, item, report); });
    return progress.end();
}
