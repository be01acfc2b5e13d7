// The supervisor's standard streams: closed, broken, or never read; and the lock that keeps a second supervisor out.
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::Process;

constexpr const char* shell = "/bin/sh";

// What descriptor `number` of the supervisor refers to.
std::string descriptor(Appliance& decoder, int number) {
    char name[4096] = "";
    const std::string link =
        "/proc/" + std::to_string(decoder.supervisor().pid()) + "/fd/" + std::to_string(number);
    const ssize_t length = readlink(link.c_str(), name, sizeof name - 1);
    return length < 0 ? "(closed)" : std::string(name, static_cast<std::size_t>(length));
}

TEST(ClosedStreams, AreNotTakenByTheButton) {
    for (const char* closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        Appliance decoder;
        decoder.addEncoder("Front door");
        decoder.setStarter({shell, "-c", std::string("exec \"$@\" ") + closed, "sh"});
        decoder.start();
        EXPECT_TRUE(decoder.showsMoving(0)) << closed;
        for (int number = 0; number < 3; ++number) {
            const std::string name = descriptor(decoder, number);
            EXPECT_TRUE(name == "/dev/null" || name == decoder.root() + "/var/log/output")
                << closed << ": " << number << " is " << name;
        }
        // Its own trace lines are not read as presses.
        EXPECT_EQ(decoder.countInLog("(id=4, "), 0U) << closed;
        EXPECT_EQ(decoder.ctl({"button"}).status, 0);
        EXPECT_TRUE(decoder.waitForLog("(id=4, ")) << closed;
        EXPECT_EQ(decoder.stop(SIGINT), 0) << closed;
    }
}

// Standard output is a FIFO that the test made. The starter opens it, so that the supervisor inherits it.
std::string outputFifo(Appliance& decoder) {
    const std::string fifo = decoder.root() + "/run/output";
    mkfifo(fifo.c_str(), 0600);
    decoder.setStarter({shell, "-c", "exec \"$@\" >\"$0\"", fifo});
    return fifo;
}

TEST(BrokenOutput, DoesNotEndTheSupervisor) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    const int reader = open(outputFifo(decoder).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    close(reader);
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.stop(SIGINT), 0);
    EXPECT_EQ(decoder.countInLog("[SHUTDOWN] Closing log system..."), 1U);
}

// Fills the pipe behind the FIFO to the last byte.
void fill(const std::string& fifo) {
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    const std::string bytes(4096, 'x');
    while (write(writer, bytes.data(), bytes.size()) > 0) {
    }
    while (write(writer, "x", 1) > 0) {
    }
    close(writer);
}

std::string readWhatIsThere(int reader) {
    std::string text;
    char bytes[65536];
    for (ssize_t got = 0; (got = read(reader, bytes, sizeof bytes)) > 0;) {
        text.append(bytes, static_cast<std::size_t>(got));
    }
    return text;
}

TEST(UnreadOutput, StopsNothing) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    const std::string fifo = outputFifo(decoder);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    fill(fifo);
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    readWhatIsThere(reader);
    EXPECT_EQ(decoder.ctl({"select", "0"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.waitForLog("Standard output was not read for a while: "));
    EXPECT_NE(readWhatIsThere(reader).find("Launched pid: "), std::string::npos);
    fill(fifo);
    EXPECT_EQ(decoder.stop(SIGINT), 0);
    close(reader);
}

TEST(OwnerLock, KeepsASecondSupervisorOutAndTheFirstOnePlaying) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const std::string first = std::to_string(decoder.supervisor().pid());
    const std::string lock = decoder.root() + "/run/decoder/skelmor.lock";
    EXPECT_EQ(appliance::readFile(lock), first + "\n");
    const appliance::Finished second =
        appliance::runToEnd({Appliance::program("skelmor")},
                            {{"APPLIANCE_ROOT", decoder.root()}, {"LIBCOMMON_LOG", decoder.logFile()}});
    EXPECT_EQ(second.status, 1);
    const std::string text = "process " + first + " is the supervisor of this appliance and has " + lock;
    EXPECT_EQ(second.errors, "skelmor: not started: " + text + "\n");
    EXPECT_EQ(decoder.countInLog("Not started: " + text), 1U);
    EXPECT_EQ(decoder.countInLog(" 6 Started"), 1U);
    EXPECT_EQ(decoder.countInLog("Found sprawling barrier"), 0U);
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.stop(SIGINT), 0);
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0)) << "after the first one's end it is free";
}

TEST(OwnerLock, IsFreeAtOnceAfterAKilledSupervisorWithAPlayer) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.stop(SIGKILL), -1);
    decoder.start();
    EXPECT_TRUE(decoder.waitForLog(" 6 Started", 2));
    EXPECT_TRUE(decoder.showsMoving(0));
}

} // namespace
