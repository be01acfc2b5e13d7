#include "process/trace_output.h"

#include "process/standard_streams.h"
#include "tests/fakes/fake_libcommon.h"
#include "tests/support/child_run.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int failed = 1;

// Ends the test's process when `condition` does not hold.
void require(bool condition, const char* what) {
    if (condition)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    _exit(failed);
}

// In the child: makes standard output a pipe that nobody reads. Returns the other end.
int unreadOutput() {
    int ends[2];
    require(pipe2(ends, O_CLOEXEC) == 0, "a pipe");
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    alarm(20); // a blocked write ends the test's process
    return ends[0];
}

std::string readAll(int fd) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    std::string text;
    char bytes[65536];
    for (ssize_t got = 0; (got = read(fd, bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<std::size_t>(got));
    return text;
}

// More lines than a pipe holds.
constexpr int manyLines = 20000;

void printManyAndThenOne(int reader) {
    for (int i = 0; i < manyLines; ++i)
        printTrace("line %d\n", i);
    require(fake::log.empty(), "nothing is logged while nothing can be written");
    const std::string first = readAll(reader);
    require(first.starts_with("line 0\nline 1\n"), "the first lines came");
    require(first.ends_with("\n"), "whole lines only");
    const auto lines = std::count(first.begin(), first.end(), '\n');
    require(lines > 0 && lines < manyLines, "the rest was dropped");
    printTrace("after %s\n", "that");
    require(readAll(reader) == "after that\n", "the next line comes");
    require(fake::log.size() == 1, "the loss is logged once");
    require(fake::log[0].text == "Standard output was not read for a while: " +
                                     std::to_string(manyLines - lines) + " trace lines were dropped",
            fake::log[0].text.c_str());
    printTrace("one more\n");
    require(fake::log.size() == 1, "the loss is logged once");
}

} // namespace

TEST(TraceOutput, LinesThatNobodyReadsAreDroppedAndCounted) {
    const ChildRun run = runInChild([] {
        fake::reset();
        const int reader = unreadOutput();
        openTraceOutput();
        printManyAndThenOne(reader);
        require((fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) == 0, "the shared descriptor still blocks");
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus << run.err;
}

TEST(TraceOutput, WithoutADescriptorOfItsOwnItAsksFirst) {
    const ChildRun run = runInChild([] {
        fake::reset();
        printManyAndThenOne(unreadOutput());
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus << run.err;
}

TEST(TraceOutput, ASocketThatNobodyReadsDoesNotBlockEither) {
    const ChildRun run = runInChild([] {
        fake::reset();
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a socket");
        dup2(ends[1], STDOUT_FILENO);
        alarm(20);
        openTraceOutput();
        printManyAndThenOne(ends[0]);
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus << run.err;
}

TEST(TraceOutput, AClosedReaderDoesNotEndTheProcess) {
    const ChildRun run = runInChild([] {
        fake::reset();
        surviveBrokenPipes();
        close(unreadOutput());
        openTraceOutput();
        printTrace("to nobody\n");
        printTraceInHandler("to nobody\n");
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus << run.err;
}

TEST(TraceOutput, ErrnoStaysAsItWas) {
    const ChildRun run = runInChild([] {
        fake::reset();
        surviveBrokenPipes();
        close(unreadOutput());
        errno = ENOENT;
        printTrace("to nobody\n");
        require(errno == ENOENT, "errno");
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus << run.err;
}

TEST(TraceOutput, ALineIsWrittenAsPrintfWould) {
    const ChildRun run = runInChild([] {
        fake::reset();
        openTraceOutput();
        printTrace("no newline");
        printTrace("%s %ld\n", "text", 12L);
        printTrace("%s", "");
        printTraceInHandler("uslret = %d errno=%d\n", 0, 4);
    });
    EXPECT_EQ(run.out, "no newlinetext 12\nuslret = 0 errno=4\n");
}

TEST(TraceOutput, ALongLineIsNotCut) {
    const std::string text = std::string(10000, 'x') + "\n";
    const ChildRun run = runInChild([&] {
        fake::reset();
        openTraceOutput();
        printTrace("%s", text.c_str());
    });
    EXPECT_EQ(run.out, text);
}
