#include "player/launch.h"

#include "barrier/barrier_table.h"
#include "player/children.h"
#include "player/player_command.h"
#include "player/port_pairs.h"
#include "process/process_state.h"
#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The behaviour of the replaced functions below; set by the tests, reset by the fixture.
bool forkFails = false;
int parentPid = 0;         // the result of getppid; 0: the real one
int childReport = -1;      // a child that ends with _exit writes its last log line here
int nextPort = 20004;      // the result of the port search
bool loggingHangs = false; // a failed exec never gets to the end of its log line

} // namespace

// Replaces functions of the C library and of the folders that launching calls.

extern "C" pid_t fork() {
    if (forkFails) {
        errno = EAGAIN;
        return -1;
    }
    static const auto real = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    return real();
}

extern "C" pid_t getppid() {
    return parentPid != 0 ? parentPid : static_cast<pid_t>(syscall(SYS_getppid));
}

extern "C" void _exit(int status) {
    if (childReport != -1 && !fake::log.empty()) {
        const std::string& text = fake::log.back().text;
        if (write(childReport, text.data(), text.size()) == -1)
            status = 99;
    }
    for (;;)
        syscall(SYS_exit_group, status);
}

extern "C" char* strerror(int error) noexcept {
    while (loggingHangs)
        pause();
    return const_cast<char*>(strerrordesc_np(error));
}

// Takes one hundredth of the time.
extern "C" unsigned alarm(unsigned seconds) {
    const itimerval timer{{0, 0}, {0, static_cast<suseconds_t>(seconds) * 10'000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
    return 0;
}

int createBarrier(int pid) {
    fake::calls.push_back("createBarrier(" + std::to_string(pid) + ")");
    return 0;
}

int allocatePlayerPortPair() {
    fake::calls.push_back("allocatePlayerPortPair()");
    return nextPort;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

int waitStatus(int pid) {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

std::string readAll(int fd) {
    std::string text;
    char piece[512];
    for (ssize_t got; (got = read(fd, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(got));
    return text;
}

std::string contents(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        readEnd = ends[0];
        writeEnd = ends[1];
    }
};

class Launch : public testing::Test {
protected:
    Launch() {
        fake::reset();
        fake::sources.resize(4);
        forkFails = false;
        parentPid = 0;
        childReport = -1;
        nextPort = 20004;
        loggingHangs = false;
        process.verbosity = 0;
        char name[] = "/tmp/launch_test.XXXXXX";
        root_ = mkdtemp(name);
        std::filesystem::create_directory(root_ / "bin");
        setenv("APPLIANCE_ROOT", root_.c_str(), 1);
    }
    ~Launch() override { std::filesystem::remove_all(root_); }

    // A player that writes its arguments, one on each line, into a file beside itself and exits with `status`.
    void installPlayer(const std::string& name, int status) const {
        const std::filesystem::path file = root_ / "bin" / name;
        std::ofstream(file) << "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" > " << file.string() << ".args\nexit "
                            << status << "\n";
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

    SourceEntry entry_ = [] {
        SourceEntry entry;
        entry.index = 3;
        entry.detectedOK = true;
        entry.detectedType = TYPE_RTSP_TCP;
        entry.connectMode = CONNECT_HTTP;
        entry.sourceNumber = 1;
        entry.rtspHost = "127.0.0.1";
        entry.rtspPort = 554;
        return entry;
    }();
    std::filesystem::path root_;
};

TEST_F(Launch, NullEntryIsRefused) {
    EXPECT_EQ(launchPlayer(nullptr), -1);
    EXPECT_THAT(fake::log, ElementsAre(fake::LogLine{3, "launchPlayer called with NULL entry."}));
    EXPECT_THAT(fake::calls, IsEmpty());
}

TEST_F(Launch, UndetectedEntryIsRefused) {
    entry_.detectedOK = false;
    EXPECT_EQ(launchPlayer(&entry_), -1);
    EXPECT_THAT(fake::log, ElementsAre(fake::LogLine{3, "launchPlayer called with an invalid entry."}));
    EXPECT_THAT(fake::calls, IsEmpty());
}

TEST_F(Launch, UnicastWithoutAFreePortIsRefused) {
    entry_.detectedType = TYPE_RTSP_UNICAST;
    nextPort = -1;
    EXPECT_EQ(launchPlayer(&entry_), -1);
    EXPECT_THAT(fake::log, ElementsAre(fake::LogLine{3, "launchPlayer failed to bind port."}));
    EXPECT_THAT(fake::calls, ElementsAre("allocatePlayerPortPair()"));
}

TEST_F(Launch, FailedForkIsLoggedWithItsReason) {
    forkFails = true;
    EXPECT_EQ(launchPlayer(&entry_), -1);
    EXPECT_THAT(fake::log, ElementsAre(fake::LogLine{
                               3, "Failed to gaffel() errno=11 (Resource temporarily unavailable)"}));
    EXPECT_THAT(fake::calls, ElementsAre("semaphoreSet(2001,0)", "semaphoreSet(2002,0)"));
}

TEST_F(Launch, StepsComeInOrder) {
    entry_.detectedType = TYPE_RTSP_UNICAST;
    testing::internal::CaptureStdout();
    const int pid = launchPlayer(&entry_);
    const std::string number = std::to_string(pid);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Pushing back pid: " + number + "\nLaunched pid: " + number + "\n");
    EXPECT_THAT(fake::calls,
                ElementsAre("allocatePlayerPortPair()", "semaphoreSet(2001,0)", "semaphoreSet(2002,0)",
                            "createBarrier(" + number + ")", "semaphoreIncrease(2002)"));
    waitStatus(pid);
}

TEST_F(Launch, PlayerOfAnAbsolutePathRunsBelowTheApplianceRootUnderItsOwnName) {
    installPlayer("mpeg4player", 14);
    entry_.detectedType = TYPE_RTSP_UNICAST;
    EXPECT_EQ(waitStatus(launchPlayer(&entry_)), 14 << 8);
    // The shell passes its script the path of the executed file as $0; the other arguments are unchanged.
    EXPECT_EQ(
        contents(root_ / "bin/mpeg4player.args"),
        (root_ / "bin/mpeg4player").string() +
            "\n-m\nntsc\n-o\ntv\n-n\n3\n-r\n10000\n-P\n554\n-q\n20004\n-c\n1\n-M\nrtsp-unicast\n-H\nhttp\n"
            "127.0.0.1\n");
}

TEST_F(Launch, PlayerOfABareNameIsSearchedOnThePath) {
    installPlayer("unicastplayer", 11);
    const std::string path = std::getenv("PATH");
    setenv("PATH", ((root_ / "bin").string() + ":" + path).c_str(), 1);
    entry_.detectedType = TYPE_MPEG2;
    EXPECT_EQ(waitStatus(launchPlayer(&entry_)), 11 << 8);
    setenv("PATH", path.c_str(), 1);
    EXPECT_THAT(contents(root_ / "bin/unicastplayer.args"), HasSubstr("\n-P\n554\n127.0.0.1\n"));
}

TEST_F(Launch, OnlyUnicastTakesAPort) {
    for (const int type : {0, 1, 2, 3, 5, 6, 7, 8}) {
        fake::calls.clear();
        entry_.detectedType = type;
        waitStatus(launchPlayer(&entry_));
        EXPECT_THAT(fake::calls, testing::Not(testing::Contains("allocatePlayerPortPair()"))) << type;
    }
}

TEST_F(Launch, MissingPlayerEndsTheChildWithThirteenAndALine) {
    const Pipe report;
    childReport = report.writeEnd;
    const int pid = launchPlayer(&entry_);
    close(report.writeEnd);
    EXPECT_EQ(waitStatus(pid), 13 << 8);
    EXPECT_EQ(readAll(report.readEnd), "Failed to execvp() (2, 'No such file or directory') using cmdline "
                                       "'/bin/mpeg4player -m ntsc -o tv -n "
                                       "3 -r 10000 -P 554 -c 1 -M rtsp-tcp -H http 127.0.0.1'");
}

TEST_F(Launch, UnknownKindsOfStreamEndWithThirteen) {
    for (const int type : {0, 8}) {
        entry_.detectedType = type;
        EXPECT_EQ(waitStatus(launchPlayer(&entry_)), 13 << 8) << type;
    }
}

TEST_F(Launch, ChildThatCannotWriteItsLineStillEndsWithThirteen) {
    loggingHangs = true; // as if a thread of the supervisor held the log's lock at the fork
    EXPECT_EQ(waitStatus(launchPlayer(&entry_)), 13 << 8);
}

TEST_F(Launch, CommandLineIsLoggedFromVerbosityTwoOnWithoutThePassword) {
    entry_.connectMode = CONNECT_HTTP_AUTH;
    entry_.userName = "operator";
    entry_.password = "secret";
    process.verbosity = 1;
    waitStatus(launchPlayer(&entry_));
    EXPECT_THAT(fake::log, IsEmpty());
    process.verbosity = 2;
    waitStatus(launchPlayer(&entry_));
    EXPECT_THAT(fake::log,
                ElementsAre(fake::LogLine{
                    7, "Using cmdline '/bin/mpeg4player -u operator -p ******** -m ntsc -o tv -n 3 -v -r "
                       "10000 -P 554 -c 1 -M rtsp-tcp -H http-auth 127.0.0.1'"}));
}

TEST_F(Launch, ChildIsHeldUntilItIsListedAndItsBarrierExists) {
    const Pipe release;
    const Pipe passed;
    fake::onSemaphoreDecrease = [&](int id) {
        char token = 0;
        return id == 2002 && read(release.readEnd, &token, 1) == 1 ? 0 : -1;
    };
    const int pid = gaffel();
    if (pid == 0)
        _exit(write(passed.writeEnd, "x", 1) == 1 ? 5 : 6);
    EXPECT_THAT(fake::calls, ElementsAre("semaphoreSet(2002,0)", "createBarrier(" + std::to_string(pid) + ")",
                                         "semaphoreIncrease(2002)"));
    EXPECT_EQ(fcntl(passed.readEnd, F_SETFL, O_NONBLOCK), 0);
    char token = 0;
    EXPECT_EQ(read(passed.readEnd, &token, 1), -1) << "the child has not passed yet";
    ASSERT_EQ(write(release.writeEnd, "x", 1), 1);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    reapChildren(SIGCHLD);
    ASSERT_EQ(fake::sentEvents.size(), 1U) << "it was in the list";
    EXPECT_EQ(fake::sentEvents[0].value1, pid);
    EXPECT_EQ(fake::sentEvents[0].value2, 5 << 8);
}

TEST_F(Launch, ParentsSignalMaskIsWhatItWas) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    const int pid = gaffel();
    if (pid == 0)
        _exit(0);
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    EXPECT_TRUE(sigismember(&now, SIGINT));
    EXPECT_FALSE(sigismember(&now, SIGCHLD));
    EXPECT_FALSE(sigismember(&now, SIGTERM));
    waitStatus(pid);
}

// 0 when this process has all signals at their defaults, none blocked, and dies with its parent; otherwise a code
// for the mistake.
int signalsAreFresh() {
    for (int signo = 1; signo < 32; ++signo) {
        struct sigaction action {};
        sigaction(signo, nullptr, &action);
        if (action.sa_handler != SIG_DFL)
            return signo;
    }
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    for (int signo = 1; signo < 32; ++signo)
        if (sigismember(&mask, signo) == 1)
            return 100 + signo;
    int deathSignal = 0;
    prctl(PR_GET_PDEATHSIG, &deathSignal);
    return deathSignal == SIGTERM ? 0 : 200;
}

TEST_F(Launch, ChildHasDefaultSignalsAnEmptyMaskAndDiesWithItsSupervisor) {
    std::signal(SIGINT, [](int) {});
    std::signal(SIGSEGV, [](int) {});
    std::signal(SIGUSR1, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &saved);
    const int pid = gaffel();
    if (pid == 0)
        _exit(signalsAreFresh());
    sigprocmask(SIG_SETMASK, &saved, nullptr);
    for (const int signo : {SIGINT, SIGSEGV, SIGUSR1, SIGPIPE})
        std::signal(signo, SIG_DFL);
    EXPECT_EQ(waitStatus(pid), 0);
}

TEST_F(Launch, ChildThatWaitsForItsReleaseDiesWithTheSupervisor) {
    const Pipe alive;
    const int supervisor = fork();
    if (supervisor == 0) {
        fake::onSemaphoreDecrease = [](int) -> int {
            for (;;)
                pause();
        };
        _exit(gaffel() > 0 ? 0 : 1);
    }
    close(alive.writeEnd);
    EXPECT_EQ(waitStatus(supervisor), 0);
    EXPECT_EQ(readAll(alive.readEnd), "") << "ends only when the waiting child is gone, too";
}

TEST_F(Launch, ChildWhoseSupervisorDiedRightAfterTheForkEndsAtOnce) {
    parentPid = 1;
    fake::onSemaphoreDecrease = [](int) {
        _exit(77); // it must not reach the hand-shake
        return 0;
    };
    EXPECT_EQ(waitStatus(gaffel()), 1 << 8);
}

} // namespace
