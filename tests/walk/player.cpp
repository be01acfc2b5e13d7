// The scripted player: it meets the supervisor at the barriers like a real player, but shows nothing and ends
// as planned.
//
// A plan is one line of words in run/walk/plan below the appliance root. The next player that starts takes it.
// "PLACE MILLISECONDS ACTION" plans one place: "start", "announced0", "released0", "announced1", "playing",
// "hup" and "leave". ACTION is "go", "exit=N", "signal=N", "wrong" (announces barrier 5) or "twice" (announces again).
// With the word "deaf" SIGINT is ignored. Every step goes to run/walk/players.log with its time and pid.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <libcommon/barriers.h>
#include <libcommon/paths.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int wrongBarrier = 5;
constexpr std::chrono::milliseconds patienceOfRuleBreakers{700};

volatile std::sig_atomic_t hangUp = 0;
volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t ordered = 0; // SIGUSR1: exit with the status in run/walk/exit.PID

struct Plan {
    std::string place;
    int milliseconds = 0;
    std::string action = "go";
    bool deaf = false;
};

Plan plan;

std::string walkPath(const std::string& name) {
    return libcommon::appliancePath("/run/walk/" + name);
}

void note(const std::string& what) {
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const std::string line = std::to_string(now) + ' ' + std::to_string(getpid()) + ' ' + what + '\n';
    const int fd = open(walkPath("players.log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::abort();
    }
    close(fd);
}

std::string readLine(const std::string& path) {
    char text[256] = "";
    if (FILE* file = std::fopen(path.c_str(), "re")) {
        if (std::fgets(text, sizeof text, file) == nullptr) {
            text[0] = '\0';
        }
        std::fclose(file);
    }
    return text;
}

// The rename decides which of two players gets the plan.
void takePlan() {
    const std::string mine = walkPath("plan." + std::to_string(getpid()));
    if (std::rename(walkPath("plan").c_str(), mine.c_str()) != 0) {
        return;
    }
    std::istringstream words(readLine(mine));
    unlink(mine.c_str());
    for (std::string word; words >> word;) {
        if (word == "deaf") {
            plan.deaf = true;
        } else {
            plan.place = word;
            words >> plan.milliseconds >> plan.action;
        }
    }
}

[[noreturn]] void leave(int status) {
    note("exit " + std::to_string(status));
    _exit(status);
}

[[noreturn]] void dieOf(int signal) {
    note("signal " + std::to_string(signal));
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(signal, SIG_DFL);
    raise(signal);
    std::abort();
}

void announce(int barrier) {
    note("announce " + std::to_string(barrier));
    while (libcommon::announceBarrier(barrier) != 0 && errno == EINTR) {
    }
}

// Sleeps for a moment; carries out orders from outside.
void moment() {
    usleep(3000);
    if (interrupted != 0) {
        note("int");
        leave(0);
    }
    if (ordered != 0) {
        leave(std::atoi(readLine(walkPath("exit." + std::to_string(getpid()))).c_str()));
    }
}

void wait(int milliseconds) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < until) {
        moment();
    }
}

void reach(const std::string& place) {
    if (plan.place != place) {
        return;
    }
    wait(plan.milliseconds);
    const std::size_t equals = plan.action.find('=');
    const std::string verb = plan.action.substr(0, equals);
    if (verb == "exit") {
        leave(std::atoi(plan.action.c_str() + equals + 1));
    }
    if (verb == "signal") {
        dieOf(std::atoi(plan.action.c_str() + equals + 1));
    }
    if (verb == "wrong") {
        announce(wrongBarrier);
    }
    if (verb == "twice") {
        announce(place == "announced0" ? 0 : 1);
    }
}

void awaitRelease(int barrier) {
    // The supervisor never releases a player that broke the rules.
    const bool brokeRules = plan.action == "wrong" || plan.action == "twice";
    const auto until = std::chrono::steady_clock::now() + patienceOfRuleBreakers;
    while (libcommon::pollBarrierRelease(barrier) != 0) {
        if ((errno != EAGAIN && errno != EINTR) || (brokeRules && std::chrono::steady_clock::now() > until)) {
            leave(99);
        }
        moment();
    }
    note("release " + std::to_string(barrier));
}

void meet(int barrier) {
    announce(barrier);
    reach("announced" + std::to_string(barrier));
    awaitRelease(barrier);
}

std::string sourceOf(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::string(argv[i]) == "-n") {
            return argv[i + 1];
        }
    }
    return "-";
}

} // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGHUP, [](int) { hangUp = 1; });
    std::signal(SIGUSR1, [](int) { ordered = 1; });
    takePlan();
    if (plan.deaf) {
        std::signal(SIGINT, SIG_IGN);
    } else {
        std::signal(SIGINT, [](int) { interrupted = 1; });
    }
    note("start " + sourceOf(argc, argv));
    reach("start");
    meet(0);
    reach("released0");
    meet(1);
    note("playing");
    if (plan.place == "playing") {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(plan.milliseconds);
        while (hangUp == 0 && std::chrono::steady_clock::now() < until) {
            moment();
        }
        if (hangUp == 0) {
            plan.milliseconds = 0;
            reach("playing");
        }
    }
    while (hangUp == 0) {
        moment();
    }
    note("hup");
    reach("hup");
    announce(1);
    awaitRelease(1);
    reach("leave");
    leave(0);
}
