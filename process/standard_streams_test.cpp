#include "process/standard_streams.h"

#include "tests/support/child_run.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isDevNull(int fd) {
    struct stat file {};
    struct stat null {};
    return fstat(fd, &file) == 0 && stat("/dev/null", &null) == 0 && file.st_rdev == null.st_rdev &&
           S_ISCHR(file.st_mode);
}

// Closes these descriptors in a child process and fills them. The child's exit status reports whether they are
// /dev/null and the next file gets a number above 2.
bool filled(const std::string& closed) {
    const ChildRun run = runInChild([&] {
        for (const char number : closed)
            close(number - '0');
        fillStandardStreams();
        bool good = open("/", O_RDONLY | O_CLOEXEC) > 2;
        for (const char number : closed)
            good = good && isDevNull(number - '0') && fcntl(number - '0', F_GETFD) == 0;
        _exit(good ? 0 : 1);
    });
    return run.exitedWith(0);
}

} // namespace

TEST(StandardStreams, ClosedOnesAreOpenedOnTheNullDevice) {
    for (const char* closed : {"", "0", "1", "2", "01", "02", "12", "012"})
        EXPECT_TRUE(filled(closed)) << closed;
}

TEST(StandardStreams, OpenOnesStayWhatTheyAre) {
    const ChildRun run = runInChild([] {
        close(0);
        fillStandardStreams();
        (void)!write(1, "out", 3);
        (void)!write(2, "err", 3);
    });
    EXPECT_EQ(run.out, "out");
    EXPECT_EQ(run.err, "err");
}

TEST(StandardStreams, ABrokenPipeOnlyFailsTheWrite) {
    const ChildRun run = runInChild([] {
        surviveBrokenPipes();
        int ends[2];
        if (pipe(ends) != 0)
            _exit(1);
        close(ends[0]);
        const ssize_t written = write(ends[1], "x", 1);
        _exit(written == -1 && errno == EPIPE ? 0 : 2);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(StandardStreams, AProgramThatIsStartedFromHereGetsTheDefaultBack) {
    const ChildRun run = runInChild([] {
        surviveBrokenPipes();
        execl("/bin/sh", "sh", "-c", "kill -PIPE $$; exit 0", nullptr);
    });
    EXPECT_TRUE(WIFSIGNALED(run.waitStatus)) << run.waitStatus;
    EXPECT_EQ(WTERMSIG(run.waitStatus), SIGPIPE);
}
