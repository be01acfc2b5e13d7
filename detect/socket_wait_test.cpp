// The waits on sockets, with real sockets on loopback.
#include "detect/descriptor.h"
#include "detect/detection_state.h"
#include "detect/probe_wait.h"
#include "detect/rtsp_transport_wait.h"
#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using detect::Descriptor;
using detect::waitForTransport;

void doNothing(int) {}

void setBlocked(int signo, bool blocked) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signo);
    sigprocmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &one, nullptr);
}

// Handlers without SA_RESTART for the three signals, all blocked, as during a detection.
class SocketWait : public testing::Test {
protected:
    SocketWait() {
        fake::reset();
        for (const int signo : {SIGUSR1, SIGINT, SIGCHLD}) {
            struct sigaction action {};
            action.sa_handler = doNothing;
            sigaction(signo, &action, nullptr);
            setBlocked(signo, true);
        }
    }
    ~SocketWait() override {
        for (const int signo : {SIGUSR1, SIGINT, SIGCHLD}) {
            setBlocked(signo, false);
            std::signal(signo, SIG_DFL);
        }
    }
};

// A UDP socket on loopback and a way to send it a packet.
class Receiver {
public:
    Receiver() : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void send(const std::string& packet) const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length);
        const Descriptor sender(::socket(AF_INET, SOCK_DGRAM, 0));
        EXPECT_EQ(sendto(sender.get(), packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&address),
                         length),
                  static_cast<ssize_t>(packet.size()));
    }

    int fd() const { return socket_.get(); }

private:
    Descriptor socket_;
};

struct Pair {
    Descriptor ours;
    Descriptor theirs;
    explicit Pair(int type = SOCK_STREAM) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, type, 0, ends), 0);
        ours = Descriptor(ends[0]);
        theirs = Descriptor(ends[1]);
    }
    void send(const std::string& text) const {
        EXPECT_EQ(write(theirs.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
};

ResponseHeader withLength(const std::string& length) {
    ResponseHeader header;
    header.headers["content-length"] = length;
    return header;
}

TEST_F(SocketWait, TransportIsThereOncePacketsCameOnBothSockets) {
    const Receiver data;
    const Receiver control;
    data.send("rtp");
    control.send("rtcp");
    testing::internal::CaptureStdout();
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "gotDatagotRTCP");
}

TEST_F(SocketWait, ControlMayComeFirst) {
    const Receiver data;
    const Receiver control;
    control.send("rtcp");
    const int sender = fork();
    if (sender == 0) {
        data.send("rtp");
        _exit(0);
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), 1);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(output == "gotRTCPgotData" || output == "gotDatagotRTCP") << output;
    waitpid(sender, nullptr, 0);
}

TEST_F(SocketWait, EmptyPacketIsAPacket) {
    const Receiver data;
    const Receiver control;
    data.send("");
    control.send("");
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), 1);
}

TEST_F(SocketWait, DataAloneIsNotEnough) {
    const Receiver data;
    const Receiver control;
    data.send("rtp");
    data.send("rtp");
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 0), -1);
    EXPECT_FALSE(fake::interrupted);
}

TEST_F(SocketWait, NothingAtAllFailsWhenTheTimeIsOver) {
    const Receiver data;
    const Receiver control;
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 1), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
    EXPECT_FALSE(fake::interrupted);
}

TEST_F(SocketWait, NegativeTimeFailsAtOnce) {
    const Receiver data;
    const Receiver control;
    data.send("rtp");
    control.send("rtcp");
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), -1), -1);
}

TEST_F(SocketWait, FailedReceiveFails) {
    const Receiver control;
    control.send("rtcp");
    const Descriptor unconnected(::socket(AF_INET, SOCK_STREAM, 0)); // readable, with an error
    EXPECT_EQ(waitForTransport(unconnected.get(), control.fd(), 30), -1);
    EXPECT_EQ(waitForTransport(9999, control.fd(), 30), -1) << "no socket at all";
}

TEST_F(SocketWait, DescriptorZeroIsASocketLikeAnyOther) {
    const Receiver data;
    const Receiver control;
    data.send("rtp");
    control.send("rtcp");
    const int input = dup(0);
    dup2(data.fd(), 0);
    EXPECT_EQ(waitForTransport(0, control.fd(), 30), 1);
    dup2(input, 0);
    close(input);
}

TEST_F(SocketWait, DescriptorsBeyondAThousandWork) {
    const Receiver data;
    const Receiver control;
    data.send("rtp");
    control.send("rtcp");
    const Descriptor high(fcntl(data.fd(), F_DUPFD_CLOEXEC, 1020)); // the limit of a process is often 1024
    ASSERT_TRUE(high.isOpen());
    EXPECT_EQ(waitForTransport(high.get(), control.fd(), 30), 1);
}

TEST_F(SocketWait, UserSignalInterruptsAndSetsTheFlag) {
    const Receiver data;
    const Receiver control;
    kill(getpid(), SIGUSR1); // just before the wait
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), -1);
    EXPECT_TRUE(fake::interrupted);
}

TEST_F(SocketWait, UserSignalInTheMiddleOfTheWaitEndsIt) {
    const Receiver data;
    const Receiver control;
    const int parent = getpid();
    const int sender = fork();
    if (sender == 0) {
        data.send("rtp");
        kill(parent, SIGUSR1);
        _exit(0);
    }
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), -1);
    EXPECT_TRUE(fake::interrupted);
    waitpid(sender, nullptr, 0);
}

TEST_F(SocketWait, InterruptIsLetIn) {
    const Receiver data;
    const Receiver control;
    kill(getpid(), SIGINT);
    EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), -1);
}

bool sleeps(int pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string word;
    stat >> word >> word >> word; // pid, name, state
    return word == "S";
}

TEST_F(SocketWait, EndOfAChildDoesNotDisturb) {
    const Receiver data;
    const Receiver control;
    for (const bool blocked : {true, false}) {
        setBlocked(SIGCHLD, blocked); // whatever the caller does with it
        const int parent = getpid();
        const int sender = fork();
        if (sender == 0) {
            while (!sleeps(parent))
                usleep(1000);
            kill(parent, SIGCHLD);
            data.send("rtp");
            control.send("rtcp");
            _exit(0);
        }
        EXPECT_EQ(waitForTransport(data.fd(), control.fd(), 30), 1) << blocked;
        EXPECT_FALSE(fake::interrupted) << blocked;
        waitpid(sender, nullptr, 0);
    }
}

TEST_F(SocketWait, BodyIsSkippedToItsEndAndNoFurther) {
    const Pair connection;
    const std::string body(5000, 'b');
    connection.send(body + "RTSP/1.0 200 OK");
    EXPECT_EQ(detect::skipBody(connection.ours.get(), withLength("5000")), 5000);
    char rest[32];
    EXPECT_EQ(read(connection.ours.get(), rest, sizeof rest), 15);
}

TEST_F(SocketWait, NoLengthIsNoBody) {
    const Pair connection;
    connection.send("next");
    EXPECT_EQ(detect::skipBody(connection.ours.get(), {}), 0);
    for (const char* length : {"", "0", "-1", "x"})
        EXPECT_EQ(detect::skipBody(connection.ours.get(), withLength(length)), 0) << length;
}

TEST_F(SocketWait, BodyThatEndsEarlyIsOver) {
    Pair connection;
    connection.send("short");
    connection.theirs = Descriptor();
    EXPECT_EQ(detect::skipBody(connection.ours.get(), withLength("1000000000")), 5);
    EXPECT_FALSE(fake::interrupted);
}

TEST_F(SocketWait, BodyThatStopsEndsWithTheDetectionTimeout) {
    detect::state.timeoutSeconds = 1;
    const Pair connection;
    connection.send("short");
    EXPECT_EQ(detect::skipBody(connection.ours.get(), withLength("1000")), 5);
    EXPECT_FALSE(fake::interrupted);
}

TEST_F(SocketWait, EndlessBodyEndsWithTheDetectionTimeout) {
    detect::state.timeoutSeconds = 1;
    const Pair connection;
    const int sender = fork();
    if (sender == 0) {
        std::signal(SIGPIPE, SIG_DFL);
        const std::string piece(1024, 'e');
        while (write(connection.theirs.get(), piece.data(), piece.size()) > 0) {
        }
        _exit(0);
    }
    // Each wait advances the test's clock.
    int waits = 0;
    fake::onGetTime = [&] { return fake::now + 1000 * waits++; };
    EXPECT_LT(detect::skipBody(connection.ours.get(), withLength("2147483647")), 2'000'000);
    kill(sender, SIGKILL);
    waitpid(sender, nullptr, 0);
}

TEST_F(SocketWait, SignalEndsTheSkippingAndSetsTheFlag) {
    const Pair connection;
    kill(getpid(), SIGUSR1);
    EXPECT_EQ(detect::skipBody(connection.ours.get(), withLength("1000")), 0);
    EXPECT_TRUE(fake::interrupted);
}

TEST_F(SocketWait, AnswerIsReadWhenItComes) {
    const Pair connection;
    connection.send("RTSP/1.0 200 OK\r\n\r\n");
    int read = 0;
    fake::onParseResponseHeader = [&](int fd, ResponseHeader&) {
        EXPECT_EQ(fd, connection.ours.get());
        ++read;
        return 0;
    };
    detect::awaitAnswer(connection.ours.get());
    EXPECT_EQ(read, 1);
}

TEST_F(SocketWait, AnswerIsWaitedForOneSecondOnly) {
    const Pair connection;
    fake::onParseResponseHeader = [](int, ResponseHeader&) {
        ADD_FAILURE() << "there is none";
        return -1;
    };
    const auto began = std::chrono::steady_clock::now();
    detect::awaitAnswer(connection.ours.get());
    const auto took = std::chrono::steady_clock::now() - began;
    EXPECT_GE(took, std::chrono::milliseconds(999));
    EXPECT_FALSE(fake::interrupted);
}

TEST_F(SocketWait, SignalEndsTheWaitForTheAnswer) {
    const Pair connection;
    kill(getpid(), SIGUSR1);
    detect::awaitAnswer(connection.ours.get());
    EXPECT_TRUE(fake::interrupted);
}

} // namespace
