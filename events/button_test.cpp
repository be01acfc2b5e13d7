#include "events/button.h"

#include "tests/fakes/fake_libcommon.h"
#include "tests/support/child_run.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// The pauses of the thread, in place of the C library's nanosleep.
std::vector<long> pauses;

bool refuseThreads = false;

struct Button : testing::Test {
    Button() {
        fake::reset();
        pauses.clear();
        std::string name = (fs::temp_directory_path() / "button.XXXXXX").string();
        root = mkdtemp(name.data());
        fs::create_directories(root / "proc/sys/dev");
        path = root / "proc/sys/dev/button_videoselect";
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        fake::setParam(0, "Buttons.VideoSelectEnabled", "yes");
    }
    ~Button() override {
        if (fd != -1)
            close(fd);
        fs::remove_all(root);
    }

    void show(const std::string& content) const { std::ofstream(path) << content; }

    void turn() {
        if (fd == -1)
            fd = button::openFile(path);
        ASSERT_NE(fd, -1);
        button::turn(fd, ParamWrapper(0, true));
    }

    // The value 2 of every event that was sent.
    std::vector<int> sent() const {
        std::vector<int> holds;
        for (const Event& event : fake::sentEvents) {
            EXPECT_EQ(event.id, EID_BUTTON);
            EXPECT_EQ(event.value1, 0);
            holds.push_back(event.value2);
        }
        return holds;
    }

    fs::path root;
    fs::path path;
    int fd = -1;
};

} // namespace

extern "C" int nanosleep(const timespec* time, timespec*) {
    EXPECT_EQ(time->tv_sec, 0);
    pauses.push_back(time->tv_nsec);
    return 0;
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (refuseThreads)
        return EAGAIN;
    return real(thread, attributes, body, argument);
}

TEST_F(Button, OneIsAShortPressPerRead) {
    show("1");
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{0}));
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{0, 0}));
}

TEST_F(Button, TwoIsAHeldButton) {
    show("2");
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{1}));
}

TEST_F(Button, AnythingElseIsIgnored) {
    for (const std::string content : {"0", "3", "9", "x", "\xff", "\n", "", " 1"}) {
        show(content);
        turn();
    }
    EXPECT_TRUE(fake::sentEvents.empty());
}

TEST_F(Button, OnlyTheFirstByteCountsAndEachReadSeesTheCurrentState) {
    show("1\n");
    turn();
    show("2\n");
    turn();
    show("0\n");
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{0, 1}));
}

TEST_F(Button, PressesAreReadAndDroppedUnlessTheButtonIsEnabled) {
    show("1");
    for (const char* text : {"no", "", "YES"}) {
        fake::setParam(0, "Buttons.VideoSelectEnabled", text);
        turn();
    }
    EXPECT_TRUE(fake::sentEvents.empty());
    EXPECT_EQ(pauses.size(), 3U);
    fake::setParam(0, "Buttons.VideoSelectEnabled", "yes");
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{0}));
}

TEST_F(Button, TheResultOfSendingIsNotExamined) {
    fake::sendEventResult = -1;
    show("1");
    turn();
    turn();
    EXPECT_EQ(fake::sentEvents.size(), 2U);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(Button, AFileThatAnswersAtOnceIsReadTwentyTimesASecond) {
    show("0");
    turn();
    turn();
    EXPECT_EQ(pauses, (std::vector<long>{50000000, 50000000}));
}

TEST_F(Button, AFailedReadDoesNothingAndDoesNotSpin) {
    fs::create_directory(path);
    turn();
    turn();
    EXPECT_TRUE(fake::sentEvents.empty());
    EXPECT_EQ(pauses.size(), 2U);
}

TEST_F(Button, EachByteInAFifoIsOnePressWithoutAPause) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    fd = button::openFile(path); // no writer yet: must not wait for one
    ASSERT_NE(fd, -1);
    const int writer = open(path.c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_NE(writer, -1);
    ASSERT_EQ(write(writer, "1", 1), 1);
    ASSERT_EQ(write(writer, "2", 1), 1);
    ASSERT_EQ(close(writer), 0);
    turn();
    turn();
    EXPECT_EQ(sent(), (std::vector<int>{0, 1}));
    EXPECT_TRUE(pauses.empty());
}

TEST_F(Button, AFifoWithoutWritersWaitsInsteadOfEnding) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    fd = button::openFile(path);
    ASSERT_NE(fd, -1);
    close(open(path.c_str(), O_WRONLY | O_NONBLOCK));
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Button, NobodyCanPressAFifoThatNoSupervisorReads) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(open(path.c_str(), O_WRONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(Button, PlayersDoNotInheritTheFile) {
    show("0");
    fd = button::openFile(path);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(Button, AMissingFileEndsTheProcessWithStatusOne) {
    const ChildRun run = runInChild([] {
        if (startButtonThread())
            for (;;)
                select(0, nullptr, nullptr, nullptr, nullptr);
    });
    EXPECT_TRUE(run.exitedWith(1)) << run.waitStatus;
    EXPECT_EQ(run.err, "Failed to open\n");
}

TEST_F(Button, TheThreadReadsTheFileBelowTheApplianceRootAndTakesNoSignal) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int writer = open(path.c_str(), O_RDWR); // holds the FIFO open until the thread has opened it
    ASSERT_EQ(write(writer, "2", 1), 1);
    const ChildRun run = runInChild([] {
        fake::onSendEvent = [](const Event* event) {
            sigset_t mask;
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
            const bool blocked = sigismember(&mask, SIGINT) == 1 && sigismember(&mask, SIGCHLD) == 1 &&
                                 sigismember(&mask, SIGSEGV) == 1 && sigismember(&mask, SIGUSR1) == 1;
            _exit(blocked ? 10 + event->value2 : 9);
            return 0;
        };
        startButtonThread();
        for (;;)
            select(0, nullptr, nullptr, nullptr, nullptr);
    });
    EXPECT_TRUE(run.exitedWith(11)) << run.waitStatus;
    close(writer);
}

TEST_F(Button, AThreadThatCannotBeCreatedIsLogged) {
    refuseThreads = true;
    EXPECT_FALSE(startButtonThread());
    refuseThreads = false;
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{2, "Failed to start video select button thread!!!"}}));
}
