#include "libcommon/src/network_fixture.h"
#include "tests/support/scripted_server.h"

#include <libcommon/interrupt.h>
#include <libcommon/network.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const std::string response = "RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: 4\r\n\r\n";

// Two connected ends: a pair of sockets, or a pipe from far to near.
class Line {
public:
    enum class Kind { Sockets, Pipe };
    explicit Line(Kind kind = Kind::Sockets) {
        const bool isMade = kind == Kind::Sockets
                                ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()) == 0
                                : pipe2(ends_.data(), O_CLOEXEC) == 0;
        EXPECT_TRUE(isMade);
    }
    ~Line() {
        closeFar();
        closeNear();
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    int near() const { return ends_[0]; }
    int far() const { return ends_[1]; }
    void say(const std::string& bytes) const {
        EXPECT_EQ(::write(far(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void closeNear() { closeEnd(ends_[0]); }
    void closeFar() { closeEnd(ends_[1]); }
    void limit(int fd, int option, int milliseconds) const {
        const timeval time = {.tv_sec = milliseconds / 1000, .tv_usec = milliseconds % 1000 * 1000};
        EXPECT_EQ(setsockopt(fd, SOL_SOCKET, option, &time, sizeof time), 0);
    }

private:
    static void closeEnd(int& fd) {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

    std::array<int, 2> ends_ = {-1, -1};
};

std::string rest(int fd) {
    std::array<char, 1024> bytes;
    const ssize_t count = ::read(fd, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

class ParseResponseHeader : public NetworkTest {
protected:
    ResponseHeader header_ = {.statusCode = 7, .reason = "old", .headers = {{"Old", "1"}}};

    // The errno of a failed parse; 0 for a success.
    int parse(int fd) {
        const int result = parseResponseHeader(fd, header_);
        return result == 0 ? 0 : errno;
    }
};

TEST_F(ParseResponseHeader, LeavesTheBodyOnEveryKindOfDescriptor) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        line.say(response + "body");
        EXPECT_EQ(parse(line.near()), 0);
        EXPECT_EQ(header_.statusCode, 200);
        EXPECT_EQ(header_.headers.size(), 2U);
        EXPECT_EQ(rest(line.near()), "body");
    }
}

TEST_F(ParseResponseHeader, TwoResponsesInARowAreReadOneByOne) {
    Line line;
    line.say(response + "HTTP/1.1 404 Not Found\r\n\r\n");
    EXPECT_EQ(parse(line.near()), 0);
    EXPECT_EQ(header_.statusCode, 200);
    EXPECT_EQ(parse(line.near()), 0);
    EXPECT_EQ(header_.statusCode, 404);
    EXPECT_EQ(header_.headers.size(), 0U);
}

TEST_F(ParseResponseHeader, InterleavedPacketsAreSkipped) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        line.say(std::string("$\0\x10\0", 4) + std::string(0x1000, '\xee') + response + "body");
        EXPECT_EQ(parse(line.near()), 0);
        EXPECT_EQ(header_.statusCode, 200);
        EXPECT_EQ(rest(line.near()), "body");
    }
}

TEST_F(ParseResponseHeader, NonBlockingDescriptorsAreWaitedFor) {
    const scripted::Server server(
        {scripted::readRequest(), scripted::sendSlowly(response, std::chrono::milliseconds(1))});
    const int fd = connectTCP("127.0.0.1", server.port(), false, 5);
    EXPECT_EQ(writeFD(fd, "DESCRIBE\r\n\r\n", 12), 1);
    EXPECT_EQ(parse(fd), 0);
    EXPECT_EQ(header_.statusCode, 200);
    close(fd);
}

TEST_F(ParseResponseHeader, GarbageIsRefusedAtOnceAndTheHeaderIsEmptied) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        line.say("<html>");
        const Stopwatch time;
        EXPECT_EQ(parse(line.near()), EPROTO);
        EXPECT_LT(time.milliseconds(), 5000);
        EXPECT_EQ(header_.statusCode, 0);
        EXPECT_TRUE(header_.headers.empty());
    }
}

TEST_F(ParseResponseHeader, AnEarlyCloseIsAProtocolError) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe})
        for (const std::size_t length : {std::size_t{0}, std::size_t{3}, response.size() - 1}) {
            Line line(kind);
            line.say(response.substr(0, length));
            line.closeFar();
            EXPECT_EQ(parse(line.near()), EPROTO);
        }
}

TEST_F(ParseResponseHeader, AnEndlessHeaderIsTooLong) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        line.say("RTSP/1.0 200 OK\r\n" + std::string(20'000, 'x'));
        EXPECT_EQ(parse(line.near()), EMSGSIZE);
    }
}

TEST_F(ParseResponseHeader, ASilentPeerCostsTheDescriptorsTimeout) {
    Line line;
    line.limit(line.near(), SO_RCVTIMEO, 100);
    const Stopwatch time;
    EXPECT_EQ(parse(line.near()), ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 99);
    EXPECT_LT(time.milliseconds(), 3000);
}

TEST_F(ParseResponseHeader, SlowBytesDoNotStretchTheTimeout) {
    const scripted::Server server(
        {scripted::sendSlowly(std::string(1000, '\n'), std::chrono::milliseconds(20))});
    const int fd = connectTCP("127.0.0.1", server.port(), true, 1);
    const Stopwatch time;
    EXPECT_EQ(parse(fd), ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 990);
    EXPECT_LT(time.milliseconds(), 3000);
    close(fd);
}

TEST_F(ParseResponseHeader, EndlessPacketsDoNotStretchTheTimeout) {
    const scripted::Server server(
        {scripted::sendEndlessly(std::string("$\0\x7f\xff", 4) + std::string(0x7fff, 'x'))});
    const int fd = connectTCP("127.0.0.1", server.port(), true, 1);
    const Stopwatch time;
    EXPECT_EQ(parse(fd), ETIMEDOUT);
    EXPECT_LT(time.milliseconds(), 3000);
    close(fd);
}

TEST_F(ParseResponseHeader, AResetIsReported) {
    const scripted::Server server({scripted::readRequest(), scripted::send("RTSP/1.0"), scripted::reset()});
    const int fd = connectTCP("127.0.0.1", server.port(), true, 5);
    EXPECT_EQ(writeFD(fd, "DESCRIBE\r\n\r\n", 12), 1);
    EXPECT_EQ(parse(fd), ECONNRESET);
    close(fd);
}

TEST_F(ParseResponseHeader, AnInterruptionEndsIt) {
    const HandlerCount interruptions(SIGUSR1);
    blockSignal(SIGUSR1);
    const scripted::Server server(
        {scripted::readRequest(), scripted::send("RTSP/1.0 200"), scripted::stall()});
    const double time =
        medianInterruption([&](int round) { EXPECT_TRUE(server.waitForStepsDone(2 * round + 2)); },
                           [&](int) {
                               const int fd = connectTCP("127.0.0.1", server.port(), true, 10);
                               EXPECT_EQ(writeFD(fd, "DESCRIBE\r\n\r\n", 12), 1);
                               EXPECT_EQ(parse(fd), EINTR);
                               close(fd);
                           });
    EXPECT_LT(time, 100);
}

TEST_F(ParseResponseHeader, AClosedDescriptorIsAnError) {
    EXPECT_EQ(parse(-1), EBADF);
    EXPECT_EQ(writeFD(-1, "x", 1), -1);
    const int fd = dup(0);
    close(fd);
    EXPECT_EQ(parse(fd), EBADF);
}

class WriteFD : public NetworkTest {};

TEST_F(WriteFD, AllBytesArriveThoughTheReaderIsSlow) {
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        const std::string sent(3'000'000, 'w');
        std::string received;
        std::thread reader([&] {
            while (received.size() < sent.size()) {
                const std::string piece = rest(line.near());
                if (piece.empty())
                    return;
                received += piece;
            }
        });
        EXPECT_EQ(writeFD(line.far(), sent.data(), sent.size()), 1);
        reader.join();
        EXPECT_TRUE(received == sent);
    }
}

TEST_F(WriteFD, NothingToWriteIsASuccess) {
    const Line line;
    EXPECT_EQ(writeFD(line.far(), "", 0), 1);
}

TEST_F(WriteFD, AClosedPeerIsAFailureAndNoSignal) {
    std::signal(SIGPIPE, SIG_DFL);
    for (const Line::Kind kind : {Line::Kind::Sockets, Line::Kind::Pipe}) {
        Line line(kind);
        line.closeNear();
        EXPECT_EQ(writeFD(line.far(), "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }
}

TEST_F(WriteFD, AReaderThatNeverReadsCostsTheDescriptorsTimeout) {
    const Line line;
    line.limit(line.far(), SO_SNDTIMEO, 100);
    const std::string much(8'000'000, 'w');
    const Stopwatch time;
    EXPECT_EQ(writeFD(line.far(), much.data(), much.size()), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 99);
    EXPECT_LT(time.milliseconds(), 3000);
}

TEST_F(WriteFD, WhileTheFlagIsSetNothingIsWritten) {
    const Line line;
    setInterrupted();
    EXPECT_EQ(writeFD(line.far(), "x", 1), -1);
    EXPECT_EQ(errno, EINTR);
    char byte = 0;
    EXPECT_EQ(recv(line.near(), &byte, 1, MSG_DONTWAIT), -1);
}

} // namespace
