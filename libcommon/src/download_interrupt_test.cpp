// Downloads and signals: SIGUSR1 ends one at every stage, SIGCHLD and SIGINT are handled meanwhile.
#include "libcommon/src/download_fixture.h"
#include "tests/support/certificate.h"

#include <libcommon/interrupt.h>

#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace scripted;

namespace {

constexpr int interrupted = -42;
constexpr double promptly = 100; // milliseconds from the signal to the return

class DownloadInterruption : public DownloadTest {
protected:
    const HandlerCount interruptions_{SIGUSR1};

    // As in the supervisor during a detection.
    DownloadInterruption() { blockSignal(SIGUSR1); }

    // A download from a server with that script, interrupted when that many steps of it are done.
    double interruptedAfter(int steps, const Script& script, const Asked& asked = {}) {
        const Server server(script);
        return medianInterruption(
            [&](int round) { EXPECT_TRUE(server.waitForStepsDone((round + 1) * steps)); },
            [&](int) { EXPECT_EQ(get(server, asked).result, interrupted); });
    }
};

TEST_F(DownloadInterruption, WhileConnecting) {
    std::vector<std::unique_ptr<FullBacklog>> silent(5);
    for (auto& port : silent)
        port = std::make_unique<FullBacklog>();
    const double time =
        medianInterruption([&](int round) { EXPECT_TRUE(silent[round]->waitForAttempt()); },
                           [&](int round) {
                               EXPECT_EQ(getHttp(silent[round]->port(), {}).result, interrupted)
                                   << "and not -4011";
                           });
    EXPECT_LT(time, promptly);
}

TEST_F(DownloadInterruption, WhileWaitingForTheHeader) {
    EXPECT_LT(interruptedAfter(1, {readRequest(), stall()}), promptly);
}

TEST_F(DownloadInterruption, InTheHeader) {
    EXPECT_LT(interruptedAfter(2, {readRequest(), send("HTTP/1.1 200 OK\r\nContent-"), stall()}), promptly);
}

TEST_F(DownloadInterruption, InTheBody) {
    EXPECT_LT(interruptedAfter(2, {readRequest(), send("HTTP/1.1 200 OK\r\n\r\nbody"), stall()}), promptly);
}

TEST_F(DownloadInterruption, InABodyThatComesByteByByte) {
    const Script dripping = {readRequest(), send("HTTP/1.1 200 OK\r\n\r\n"),
                             sendSlowly(std::string(1'000'000, 'x'), std::chrono::milliseconds(1))};
    EXPECT_LT(interruptedAfter(2, dripping), promptly);
}

TEST_F(DownloadInterruption, AfterAChallenge) {
    const Script challenging = {readRequest(),
                                send(reply("401 Who", "", "WWW-Authenticate: Basic realm=\"x\"\r\n")),
                                readRequest(), stall()};
    EXPECT_LT(interruptedAfter(3, challenging, {.user = "root", .password = "s3cret"}), promptly);
}

TEST_F(DownloadInterruption, InTheTlsHandshake) {
    const Server server({readSome(), stall()});
    const double time =
        medianInterruption([&](int round) { EXPECT_TRUE(server.waitForRequests(round + 1)); },
                           [&](int) { EXPECT_EQ(getHttps(server.port(), {}).result, interrupted); });
    EXPECT_LT(time, promptly);
}

TEST_F(DownloadInterruption, BeforeTheDownloadItEndsItAtOnce) {
    const Server server({readRequest(), send(reply("200 OK", "hello"))});
    raise(SIGUSR1); // stays pending: it is blocked
    EXPECT_EQ(interruptions_.value(), 0);
    const Got got = get(server);
    EXPECT_EQ(got.result, interrupted);
    EXPECT_EQ(interruptions_.value(), 1);
    EXPECT_TRUE(isInterrupted());
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(DownloadInterruption, WhileTheFlagIsSetNothingBegins) {
    const Server server({readRequest(), send(reply("200 OK", "hello"))});
    setInterrupted();
    EXPECT_EQ(get(server).result, interrupted);
    EXPECT_EQ(getHttp(server.port(), {}).result, interrupted);
    EXPECT_EQ(getHttps(server.port(), {}).result, interrupted);
    EXPECT_EQ(get("localhost:" + std::to_string(server.port()), {}).result, interrupted);
    EXPECT_EQ(server.connections(), 0);
    clearInterrupted();
    EXPECT_EQ(get(server).body, "hello");
}

TEST_F(DownloadInterruption, IsNoFailureToLogAndNoReasonForHttps) {
    const Server server({readRequest(), stall()});
    SignalWhen interruption(SIGUSR1, [&] { EXPECT_TRUE(server.waitForRequests(1)); });
    EXPECT_EQ(get(server).result, interrupted);
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(log(), "");
}

TEST_F(DownloadInterruption, TheNextDownloadUsesAConnectionOfItsOwn) {
    const Server server({{readRequest(), send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nold"), stall()},
                         {readRequest(), send(reply("200 OK", "new"))}});
    {
        SignalWhen interruption(SIGUSR1, [&] { EXPECT_TRUE(server.waitForStepsDone(2)); });
        EXPECT_EQ(get(server).result, interrupted);
    }
    clearInterrupted();
    EXPECT_EQ(get(server).body, "new");
    EXPECT_TRUE(server.waitForClosedByClient(1));
}

class DownloadSignals : public DownloadTest {};

TEST_F(DownloadSignals, AnUnblockedInterruptionEndsTheDownloadToo) {
    const HandlerCount interruptions(SIGUSR1);
    const Server server({readRequest(), stall()});
    SignalWhen interruption(SIGUSR1, [&] { EXPECT_TRUE(server.waitForRequests(1)); });
    EXPECT_EQ(get(server).result, interrupted);
    EXPECT_EQ(interruptions.value(), 1);
    EXPECT_FALSE(isBlocked(SIGUSR1));
}

TEST_F(DownloadSignals, AnIgnoredInterruptionSignalChangesNothing) {
    std::signal(SIGUSR1, SIG_IGN);
    const Server server(
        {readRequest(), send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"), readSome(), send("x")});
    SignalWhen ignored(SIGUSR1, [&] { EXPECT_TRUE(server.waitForStepsDone(2)); });
    EXPECT_EQ(get(server, {.timeout = 1}).result, -28);
    EXPECT_FALSE(isInterrupted());
}

// A child that ends while the main thread waits is reaped at once, and the download continues.
TEST_F(DownloadSignals, AChildsEndIsHandledDuringTheDownloadAndDoesNotEndIt) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    int handledWhileWaiting = 0;
    const Server server({readRequest(), answer([&](const std::string&) {
                             kill(getpid(), SIGCHLD);
                             const Stopwatch time;
                             while (children.value() == 0 && time.milliseconds() < 5000)
                                 std::this_thread::yield();
                             handledWhileWaiting = children.value();
                             return reply("200 OK", "hello");
                         })});
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(handledWhileWaiting, 1);
    EXPECT_TRUE(isBlocked(SIGCHLD));
    EXPECT_FALSE(isInterrupted());
}

TEST_F(DownloadSignals, AnEndlessStreamDoesNotKeepInterruptSignalsOut) {
    const HandlerCount interrupts(SIGINT);
    blockSignal(SIGINT);
    raise(SIGINT);
    const Server server(
        {readRequest(), send("HTTP/1.1 200 OK\r\n\r\n"), sendEndlessly(std::string(65536, 'x'))});
    EXPECT_EQ(get(server, {.size = 0}).result, 0);
    EXPECT_EQ(interrupts.value(), 1);
}

TEST_F(DownloadSignals, AClosedPeerIsNoSignal) {
    std::signal(SIGPIPE, SIG_DFL); // would end this process
    for (int i = 0; i < 5; ++i) {
        const Server server({{readRequest(), send(reply("200 OK", "x")), reset()}, {reset()}});
        get(server);
        get(server);
    }
    EXPECT_FALSE(isPending(SIGPIPE));
}

} // namespace
