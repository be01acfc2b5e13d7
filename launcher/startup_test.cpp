#include "launcher/startup.h"

#include "barrier/barrier_table.h"
#include "events/button.h"
#include "events/event_handler.h"
#include "events/event_queue.h"
#include "launcher/shutdown.h"
#include "launcher/state_machine.h"
#include "player/children.h"
#include "process/owner_lock.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "recorder/recorder.h"
#include "tests/support/child_run.h"

#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/semaphores.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

// Fakes of everything that start-up calls. Each prints a line on standard error.
namespace {

bool buttonThreadStarts = true;

void trace(const std::string& line) {
    std::fputs((line + "\n").c_str(), stderr);
}

std::string number(int value) {
    return std::to_string(value);
}

// What happens to a signal now: "ignored", "shutdown", or "not ours" (the default, or a sanitizer).
std::string disposition(int signo) {
    struct sigaction action {};
    sigaction(signo, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return "ignored";
    // The handler for a crash has no public name; a sanitizer's does not restart system calls.
    const bool ourFlags = (action.sa_flags & SA_ONSTACK) != 0 && (action.sa_flags & SA_RESTART) != 0;
    return action.sa_handler == shutdownHandler || (signo == SIGSEGV && ourFlags) ? "shutdown" : "not ours";
}

std::string signals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string line = "SIGINT " + disposition(SIGINT) + ", SIGSEGV " + disposition(SIGSEGV) + ", SIGUSR1 " +
                       disposition(SIGUSR1) + ", blocked";
    for (int signo = 1; signo < 32; ++signo)
        if (sigismember(&mask, signo) == 1)
            line += " " + number(signo);
    return line;
}

// A command line in the form that main gets.
class CommandLine {
public:
    explicit CommandLine(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {
        arguments_.insert(arguments_.begin(), "skelmor");
        pointers_.reserve(arguments_.size() + 1);
        for (std::string& argument : arguments_)
            pointers_.push_back(argument.data());
        pointers_.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(arguments_.size()); }
    char** argv() { return pointers_.data(); }

private:
    std::vector<std::string> arguments_;
    std::vector<char*> pointers_;
};

// An appliance root for each test.
struct Startup : testing::Test {
    Startup() {
        char base[] = "/tmp/startup-XXXXXX";
        root = mkdtemp(base);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
    }
    ~Startup() override { std::filesystem::remove_all(root); }

    std::string lockFile() const { return root + "/run/decoder/skelmor.lock"; }

    std::string root;
};

// Runs the supervisor with these arguments in a process of its own.
ChildRun run(const std::vector<std::string>& arguments) {
    return runInChild([&] {
        CommandLine line(arguments);
        runSupervisor(line.argc(), line.argv());
    });
}

// The verbosity that these arguments give. Nothing may be written.
int verbosityOf(const std::vector<std::string>& arguments) {
    CommandLine line(arguments);
    process.verbosity = 0;
    testing::internal::CaptureStderr();
    readOptions(line.argc(), line.argv());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    return process.verbosity;
}

} // namespace

extern "C" void openlog(const char* identifier, int options, int facility) {
    trace(std::string("openlog(") + identifier + "," + number(options) + "," + number(facility) + ") pid " +
          (process.supervisorPid == getpid() ? "known" : "unknown") + " verbosity " +
          number(process.verbosity) + " " + signals());
}
void logmsg(int level, const char* format, ...) {
    char text[200];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    trace("log " + number(level) + " " + text);
}
void syncEncoderInfo() {
    trace("syncEncoderInfo() " + signals());
}
void installChildReaper() {
    trace("installChildReaper()");
}
int initEventQueue() {
    trace("initEventQueue()");
    return -1; // the caller ignores it
}
void recorder::startRecording() {
    trace("startRecording()");
}
void startEventHandler() {
    trace("startEventHandler()");
}
int removeStaleBarriers() {
    trace("removeStaleBarriers()");
    return -1;
}
void setQueueLimit(int id, int maximum) {
    trace("setQueueLimit(" + number(id) + "," + number(maximum) + ")");
}
int semaphoreInit(int id) {
    trace("semaphoreInit(" + number(id) + ")");
    return -1;
}
bool startButtonThread() {
    trace("startButtonThread()");
    return buttonThreadStarts;
}
void stateMachine() {
    trace("stateMachine()");
}
int removeBarrier(int) {
    return 0;
}
void removeEventQueue() {}

TEST_F(Startup, EverythingStartsInOneFixedOrder) {
    const ChildRun supervisor = run({"-v", "-x", "-vv", "operand"});
    EXPECT_TRUE(supervisor.exitedWith(0)) << supervisor.waitStatus;
    EXPECT_EQ(supervisor.err,
              "openlog(SkelMor,0,0) pid known verbosity 3 SIGINT not ours, SIGSEGV not ours, SIGUSR1 not "
              "ours, blocked\n"
              "log 6 Started\n"
              "syncEncoderInfo() SIGINT shutdown, SIGSEGV shutdown, SIGUSR1 ignored, blocked 2 17\n"
              "installChildReaper()\n"
              "initEventQueue()\n"
              "startRecording()\n"
              "startEventHandler()\n"
              "removeStaleBarriers()\n"
              "setQueueLimit(8,1)\n"
              "setQueueLimit(4,2)\n"
              "setQueueLimit(9,2)\n"
              "semaphoreInit(2001)\n"
              "semaphoreInit(2003)\n"
              "startButtonThread()\n"
              "stateMachine()\n");
    EXPECT_EQ(supervisor.out, "");
}

TEST_F(Startup, AButtonThreadThatCannotBeCreatedEndsTheProcessWithStatus255) {
    buttonThreadStarts = false;
    const ChildRun supervisor = run({});
    buttonThreadStarts = true;
    EXPECT_TRUE(supervisor.exitedWith(255)) << supervisor.waitStatus;
    EXPECT_EQ(supervisor.err.find("stateMachine()"), std::string::npos);
}

TEST_F(Startup, SignalsThatTheParentBlockedOrIgnoredAreReset) {
    const ChildRun supervisor = runInChild([] {
        blockAllSignals();
        std::signal(SIGINT, SIG_IGN);
        CommandLine line({});
        runSupervisor(line.argc(), line.argv());
    });
    EXPECT_NE(supervisor.err.find(
                  "syncEncoderInfo() SIGINT shutdown, SIGSEGV shutdown, SIGUSR1 ignored, blocked 2 17\n"),
              std::string::npos)
        << supervisor.err;
}

TEST_F(Startup, ASecondSupervisorOnTheSameRootNamesTheFirstAndTouchesNothing) {
    ASSERT_EQ(takeOwnerLock().result, OwnerLock::Result::taken);
    // The kernel's lock belongs to the open file, which the child inherits. The supervisor opens the file again.
    const ChildRun supervisor = run({});
    EXPECT_TRUE(supervisor.exitedWith(1)) << supervisor.waitStatus;
    const std::string text = "process " + std::to_string(getpid()) +
                             " is the supervisor of this appliance and has " + lockFile() + "\n";
    EXPECT_EQ(supervisor.err.substr(supervisor.err.find("log 3")),
              "log 3 Not started: " + text + "skelmor: not started: " + text);
    EXPECT_EQ(supervisor.err.find("openlog(SkelMor,0,0)"), 0U) << supervisor.err;
    EXPECT_EQ(supervisor.err.find("syncEncoderInfo()"), std::string::npos) << supervisor.err;
}

TEST_F(Startup, WithoutARunDirectoryItStillPlays) {
    std::ofstream(root + "/run") << "a file in the folder's place";
    const ChildRun supervisor = run({});
    EXPECT_TRUE(supervisor.exitedWith(0)) << supervisor.waitStatus;
    EXPECT_NE(
        supervisor.err.find("log 3 Cannot lock " + lockFile() +
                            ", so a second supervisor would not be noticed. (errno=20 Not a directory)\n"),
        std::string::npos)
        << supervisor.err;
    EXPECT_NE(supervisor.err.find("stateMachine()\n"), std::string::npos) << supervisor.err;
}

TEST(Options, VerbosityIsTheCountOfV) {
    EXPECT_EQ(verbosityOf({}), 0);
    EXPECT_EQ(verbosityOf({"-v"}), 1);
    EXPECT_EQ(verbosityOf({"-v", "-v"}), 2);
    EXPECT_EQ(verbosityOf({"-vv"}), 2);
    EXPECT_EQ(verbosityOf({"-vv", "-v"}), 3);
}

TEST(Options, UnknownOptionsAreIgnoredWithoutAMessage) {
    EXPECT_EQ(verbosityOf({"-x", "-v", "--help", "-xvq"}), 2);
}

TEST(Options, OperandsAreIgnored) {
    EXPECT_EQ(verbosityOf({"one", "-v", "two", "--", "-v"}), 1);
}
