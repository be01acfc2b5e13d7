#include "tests/faults/tracing/tracer.h"

#include "tests/faults/tracing/registers.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {

namespace {

constexpr int callStop = SIGTRAP | 0x80;

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        all.push_back(text.data());
    }
    all.push_back(nullptr);
    return all;
}

std::vector<std::string> changedEnvironment(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (changes.count(text.substr(0, text.find('='))) == 0) {
            all.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        all.emplace_back(name).append("=").append(value);
    }
    return all;
}

// In the child: never returns.
[[noreturn]] void become(char** arguments, char** environment, const char* output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number :
         {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) { // a shell ignores some of them in the background
        signal(number, SIG_DFL);
    }
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int to = open(output, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    dup2(nothing, STDIN_FILENO);
    dup2(to, STDOUT_FILENO);
    dup2(to, STDERR_FILENO);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
        raise(SIGSTOP);
        execve(arguments[0], arguments, environment);
    }
    _exit(127);
}

// Whether a stopped thread has a signal blocked.
bool blocks(pid_t thread, int signal) {
    std::uint64_t mask = 0;
    ptrace(PTRACE_GETSIGMASK, thread, sizeof mask, &mask);
    return (mask >> (signal - 1) & 1) != 0;
}

} // namespace

double secondsNow() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

bool Traced::possible() {
    if (!registers::possible) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

Traced::Traced(std::vector<std::string> arguments, std::map<std::string, std::string> environment,
               std::string output, Observer observer)
    : observer_(std::move(observer)),
      thread_([this, arguments = std::move(arguments), environment = std::move(environment),
               output = std::move(output)] { trace(arguments, environment, output); }) {
    while (pid_ == -1 && !failed_) {
        usleep(100);
    }
    if (failed_) {
        thread_.join();
        throw std::runtime_error("a traced program can't be started");
    }
}

Traced::~Traced() {
    if (!ended_) {
        kill(pid_, SIGKILL);
    }
    thread_.join();
}

std::optional<int> Traced::waitForEnd(double seconds) {
    const double until = secondsNow() + seconds;
    while (!ended_) {
        if (secondsNow() > until) {
            return std::nullopt;
        }
        usleep(500);
    }
    return status_;
}

void Traced::arm(const AtFunction& place) {
    function_ = place;
    armed_ = true;
}

void Traced::trace(const std::vector<std::string>& arguments,
                   const std::map<std::string, std::string>& environment, const std::string& output) {
    std::vector<std::string> words = arguments;
    std::vector<std::string> variables = changedEnvironment(environment);
    std::vector<char*> wordPointers = pointers(words);
    std::vector<char*> variablePointers = pointers(variables);
    const pid_t child = fork();
    if (child == 0) {
        become(wordPointers.data(), variablePointers.data(), output.c_str());
    }
    int status = 0;
    constexpr long options =
        PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status) ||
        ptrace(PTRACE_SETOPTIONS, child, nullptr, options) != 0) {
        failed_ = true;
        return;
    }
    threads_[child].known = true;
    pid_ = child;
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    follow();
}

void Traced::follow() {
    for (;;) {
        int status = 0;
        // Only the children of this thread: others belong to others.
        const pid_t thread = waitpid(-1, &status, __WALL | __WNOTHREAD);
        if (thread < 0 && errno == EINTR) {
            continue;
        }
        if (thread < 0) {
            ended_ = true;
            return;
        }
        if (WIFSTOPPED(status)) {
            handle(thread, status);
            continue;
        }
        threads_.erase(thread);
        if (thread == pid_) {
            status_ = status;
            ended_ = true;
            return;
        }
    }
}

void Traced::handle(pid_t thread, int status) {
    Thread& state = threads_[thread];
    const int signal = WSTOPSIG(status);
    if (!state.known) { // a new thread begins with a stop
        state.known = true;
        return go(thread, signal == SIGSTOP || signal == SIGTRAP ? 0 : signal);
    }
    if (signal == callStop) {
        return handleCall(thread);
    }
    if (signal == SIGTRAP) {
        return handleTrap(thread, status);
    }
    go(thread, signal);
}

void Traced::handleTrap(pid_t thread, int status) {
    if ((status >> 16) != 0) { // an event: a clone or an exec
        return go(thread, 0);
    }
    if (isBreakpoint(thread)) {
        if (++hits_ == function_.hit) {
            registers::clearBreakpoint(thread);
            apply(thread, function_.deed);
        }
        return go(thread, 0);
    }
    if (threads_[thread].coming) {
        step(thread);
        return;
    }
    go(thread, 0);
}

bool Traced::readCall(pid_t thread) {
    Thread& state = threads_[thread];
    Call call;
    if (!registers::readCall(thread, call)) {
        return false;
    }
    if (!call.entry) { // the end of a call does not say which it is
        const std::int64_t result = call.result;
        call = state.call;
        call.result = result;
        call.entry = false;
    }
    call.process = pid_;
    call.thread = thread;
    state.call = call;
    return true;
}

void Traced::handleCall(pid_t thread) {
    Thread& state = threads_[thread];
    if (!readCall(thread)) {
        return go(thread, 0);
    }
    if (!state.call.entry && thread == crashing_) { // the call may have been the one that blocks signals
        crashedBlocked_ = blocks(thread, SIGSEGV);
        crashing_ = 0;
    }
    if (!state.call.entry && state.failing) {
        finishFailing(thread);
    }
    if (armed_ && !breakpointSet_ && thread == pid_) {
        setBreakpoint();
    }
    const Deed deed = acted_ || state.coming ? Deed{} : observer_(state.call);
    if (deed.kind == Deed::Kind::fail && state.call.entry) {
        // Close frees the descriptor even when it reports an error.
        if (callName(state.call.number) != "close") {
            registers::skipCall(thread);
        }
        state.failing = deed;
    } else if (deed.kind != Deed::Kind::goOn) {
        apply(thread, deed);
    }
    go(thread, 0);
}

void Traced::finishFailing(pid_t thread) {
    Thread& state = threads_[thread];
    registers::setResult(thread, -state.failing->value);
    state.call.result = -state.failing->value;
    carryOut(thread, *state.failing);
    state.failing.reset();
}

// Begins a deed. One that comes later is counted down by step().
void Traced::apply(pid_t thread, const Deed& deed) {
    if (deed.steps > 0) {
        threads_[thread].coming = deed;
    } else {
        carryOut(thread, deed);
    }
}

void Traced::step(pid_t thread) {
    Thread& state = threads_[thread];
    if (--state.coming->steps <= 0) {
        const Deed deed = *state.coming;
        state.coming.reset();
        carryOut(thread, deed);
    }
    go(thread, 0);
}

void Traced::carryOut(pid_t thread, const Deed& deed) {
    notePlace(thread);
    actedAt_ = secondsNow();
    switch (deed.kind) {
    case Deed::Kind::goOn:
    case Deed::Kind::fail:
        break;
    case Deed::Kind::kill:
        kill(pid_, SIGKILL);
        break;
    case Deed::Kind::crash:
        crashedBlocked_ = blocks(thread, SIGSEGV);
        crashing_ = thread;
        registers::jumpToNowhere(thread);
        break;
    case Deed::Kind::signal:
        kill(pid_, deed.value);
        break;
    }
    acted_ = true;
}

void Traced::go(pid_t thread, int signal) {
    const bool stepping = threads_[thread].coming.has_value();
    ptrace(stepping ? PTRACE_SINGLESTEP : PTRACE_SYSCALL, thread, nullptr, static_cast<long>(signal));
}

void Traced::setBreakpoint() {
    const std::uint64_t address = registers::addressIn(pid_, function_.function);
    // A thread can only be changed while it is stopped: this is the main thread's own stop, or none of our concern.
    if (address != 0) {
        breakpointSet_ = registers::setBreakpoint(pid_, address);
    }
}

bool Traced::isBreakpoint(pid_t thread) {
    return breakpointSet_ && thread == pid_ && registers::hitBreakpoint(thread);
}

void Traced::notePlace(pid_t thread) {
    place_ = registers::placeOf(pid_, registers::instruction(thread));
}

} // namespace faults
