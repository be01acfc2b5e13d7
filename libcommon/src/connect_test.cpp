#include "libcommon/src/network_fixture.h"
#include "tests/support/scripted_server.h"

#include <libcommon/interrupt.h>
#include <libcommon/network.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace {

class ConnectTCP : public NetworkTest {
protected:
    ~ConnectTCP() override {
        if (fd_ >= 0)
            close(fd_);
    }
    int connected(const std::string& host, unsigned short port, bool blocking = true, int timeout = 5) {
        fd_ = connectTCP(host, port, blocking, timeout);
        return fd_;
    }

private:
    int fd_ = -1;
};

time_t secondsOf(int fd, int option) {
    timeval limit = {};
    socklen_t length = sizeof limit;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, option, &limit, &length), 0);
    return limit.tv_usec == 0 ? limit.tv_sec : -1;
}

TEST_F(ConnectTCP, AConnectionCarriesBytes) {
    const scripted::Server server({scripted::readRequest(), scripted::send("answer"), scripted::close()});
    const int fd = connected("127.0.0.1", server.port());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(writeFD(fd, "question\r\n\r\n", 12), 1);
    char answer[16] = "";
    EXPECT_EQ(recv(fd, answer, 6, MSG_WAITALL), 6);
    EXPECT_STREQ(answer, "answer");
    EXPECT_EQ(server.requests().at(0), "question\r\n\r\n");
}

TEST_F(ConnectTCP, ADescriptorIsCloseOnExecAndBlockingAsAsked) {
    const scripted::Server server({scripted::stall()});
    const int blocking = connected("127.0.0.1", server.port(), true);
    EXPECT_EQ(fcntl(blocking, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(blocking, F_GETFL) & O_NONBLOCK, 0);
    close(blocking);
    const int nonBlocking = connected("127.0.0.1", server.port(), false);
    EXPECT_EQ(fcntl(nonBlocking, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(nonBlocking, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

TEST_F(ConnectTCP, TheTimeoutStaysOnTheDescriptor) {
    const scripted::Server server({scripted::stall()});
    for (const auto& [timeout, expected] : {std::pair(3, 3L), std::pair(0, 10L), std::pair(-1, 10L)}) {
        const int fd = connectTCP("127.0.0.1", server.port(), true, timeout);
        EXPECT_EQ(secondsOf(fd, SO_RCVTIMEO), expected);
        EXPECT_EQ(secondsOf(fd, SO_SNDTIMEO), expected);
        close(fd);
    }
}

TEST_F(ConnectTCP, IPv6) {
    const scripted::Server server({scripted::stall()}, {.address = "::1"});
    EXPECT_GE(connected("::1", server.port()), 0);
}

TEST_F(ConnectTCP, AName) {
    const scripted::Server server({scripted::stall()});
    EXPECT_GE(connected("localhost", server.port()), 0); // which may well be ::1 first
}

TEST_F(ConnectTCP, ARefusedPortFailsAtOnceAndIsLogged) {
    const scripted::RefusedPort refused;
    const Stopwatch time;
    EXPECT_EQ(connected("127.0.0.1", refused.port()), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_LT(time.milliseconds(), 1000);
    EXPECT_NE(log().find("connectTCP() to \"127.0.0.1\" port " + std::to_string(refused.port()) + " failed"),
              std::string::npos)
        << log();
}

TEST_F(ConnectTCP, ASilentPortCostsTheTimeout) {
    const scripted::FullBacklog silent;
    const Stopwatch time;
    EXPECT_EQ(connected("127.0.0.1", silent.port(), true, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 990);
    EXPECT_LT(time.milliseconds(), 3000);
}

TEST_F(ConnectTCP, ANameThatDoesNotExistIsBounded) {
    const Stopwatch time;
    EXPECT_EQ(connected("no-such-host.invalid", 80, true, 2), -1);
    EXPECT_TRUE(errno == EHOSTUNREACH || errno == ETIMEDOUT) << errno;
    EXPECT_LT(time.milliseconds(), 4000);
}

TEST_F(ConnectTCP, AHalfReadAddressIsNeverConnectedTo) {
    for (const char* host : {"", " ", "127.0.0.1 ", "127.0.0.1:80", "-h", "a\nb"}) {
        EXPECT_EQ(connected(host, 80), -1) << host;
        EXPECT_EQ(errno, EHOSTUNREACH) << host;
    }
}

TEST_F(ConnectTCP, AnInterruptionEndsTheAttempt) {
    const HandlerCount interruptions(SIGUSR1);
    blockSignal(SIGUSR1);
    const double time = [&] {
        std::vector<std::unique_ptr<scripted::FullBacklog>> silent(5);
        for (auto& port : silent)
            port = std::make_unique<scripted::FullBacklog>();
        return medianInterruption([&](int round) { EXPECT_TRUE(silent[round]->waitForAttempt()); },
                                  [&](int round) {
                                      EXPECT_EQ(connected("127.0.0.1", silent[round]->port(), true, 10), -1);
                                      EXPECT_EQ(errno, EINTR);
                                  });
    }();
    EXPECT_LT(time, 100);
    EXPECT_EQ(interruptions.value(), 5);
    EXPECT_EQ(log(), ""); // an interruption is no failure
}

TEST_F(ConnectTCP, WhileTheFlagIsSetNothingBegins) {
    const scripted::Server server({scripted::stall()});
    setInterrupted();
    EXPECT_EQ(connected("127.0.0.1", server.port()), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(ConnectTCP, ChildrenThatEndMeanwhileDoNotEndTheAttempt) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    const scripted::FullBacklog silent;
    SignalWhen child(SIGCHLD, [&] { EXPECT_TRUE(silent.waitForAttempt()); });
    EXPECT_EQ(connected("127.0.0.1", silent.port(), true, 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(children.value(), 1);
}

TEST_F(ConnectTCP, AFailureLeavesNoDescriptor) {
    const scripted::RefusedPort refused;
    connected("127.0.0.1", refused.port()); // opens the log, once
    const auto before = openDescriptors();
    connected("127.0.0.1", refused.port());
    connected("no such host", 80);
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
