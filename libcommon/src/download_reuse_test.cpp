// Connections that downloads keep: used again, closed when unused, never shared with a child.
#include "libcommon/src/download_fixture.h"
#include "libcommon/src/kept_connections.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace scripted;

namespace {

using DownloadReuse = DownloadTest;

const Script friendly = {readRequest(), send(reply("200 OK", "hello")), startOver()};

TEST_F(DownloadReuse, RequestsToOneEncoderShareAConnection) {
    const Server server(friendly);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(getHttp(server.port(), {}).body, "hello");
    EXPECT_EQ(server.requests().size(), 6U);
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(DownloadReuse, ARefusalKeepsTheConnection) {
    const Server server(
        {readRequest(), send(reply("404 Not Found", "a page")), readRequest(),
         send("HTTP/1.1 302 Found\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n"), startOver()});
    EXPECT_EQ(get(server).result, -404);
    EXPECT_EQ(get(server).result, -302);
    EXPECT_EQ(get(server).result, -404);
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(DownloadReuse, AnotherEncoderGetsItsOwn) {
    const Server one(friendly);
    const Server other(friendly);
    get(one);
    get(other);
    get(one);
    EXPECT_EQ(one.connections(), 1);
    EXPECT_EQ(other.connections(), 1);
}

TEST_F(DownloadReuse, AConnectionThatTheEncoderClosedIsReplacedSilently) {
    const Server server({readRequest(), send(reply("200 OK", "hello")), close()});
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(log(), "");
}

TEST_F(DownloadReuse, AConnectionThatDiesUnderTheNextRequestIsReplacedToo) {
    const Server server({{readRequest(), send(reply("200 OK", "hello")), readRequest(), close()}, friendly});
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(DownloadReuse, AnUnusedConnectionIsClosedWithinSeconds) {
    const Server server(friendly);
    get(server);
    const Stopwatch time;
    EXPECT_TRUE(server.waitForClosedByClient(1));
    EXPECT_GE(time.milliseconds(), 4000);
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(DownloadReuse, NoDescriptorIsLeftToAProgramThatIsStarted) {
    const auto before = openDescriptors();
    const Server server(friendly);
    get(server);
    for (const int fd : openDescriptors())
        if (!before.contains(fd)) {
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
        }
}

TEST_F(DownloadReuse, ManyRequestsKeepNoMoreDescriptors) {
    const Server server(friendly);
    const RefusedPort refused;
    const auto once = [&] {
        get(server);
        get(server, {.size = 1});
        get("127.0.0.1:" + std::to_string(refused.port()), {});
    };
    once();
    const std::size_t before = openDescriptors().size();
    for (int i = 0; i < 10; ++i)
        once();
    EXPECT_LE(openDescriptors().size(), before + 4); // the server's own ends come and go
}

TEST_F(DownloadReuse, AChildBeginsWithConnectionsOfItsOwnAndLeavesItsParentsAlone) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer can't start a thread in a child of fork";
#endif
    const Server server(friendly);
    EXPECT_EQ(get(server).body, "hello");
    const pid_t child = fork();
    if (child == 0) {
        const bool succeeded = get(server).body == "hello" && get(server).body == "hello";
        _exit(succeeded ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.connections(), 2);
    EXPECT_EQ(get(server).body, "hello");
    EXPECT_EQ(server.connections(), 2) << "the parent's connection did not survive the child";
}

// The closing thread, with a shorter idle time.
class KeptConnections : public NetworkTest {
protected:
    // Never destroyed, as in the library: its thread may still run.
    static network::KeptConnections& neverDestroyed() {
        static auto& kept = *new network::KeptConnections(50'000);
        return kept;
    }
    network::KeptConnections& kept_ = neverDestroyed();

    int openSocket() {
        curl_sockaddr address = {};
        address.family = AF_INET;
        address.socktype = SOCK_STREAM;
        return network::KeptConnections::open(&kept_, CURLSOCKTYPE_IPCXN, &address);
    }

    int connectedTo(const Server& server) {
        const int fd = openSocket();
        const int flags = fcntl(fd, F_GETFL);
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(server.port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }
};

TEST_F(KeptConnections, SocketsAreNonBlockingAndCloseOnExec) {
    const int fd = openSocket();
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(network::KeptConnections::close(&kept_, fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(KeptConnections, AreShutDownAfterTheIdleTimeAndStayOpenForTheirOwner) {
    const Server server({stall()});
    kept_.beginUse();
    const int fd = connectedTo(server);
    const Stopwatch time;
    kept_.endUse();
    EXPECT_TRUE(server.waitForClosedByClient(1));
    EXPECT_GE(time.milliseconds(), 49);
    EXPECT_GE(fcntl(fd, F_GETFD), 0);
    network::KeptConnections::close(&kept_, fd);
}

TEST_F(KeptConnections, InUseAreLeftAlone) {
    const Server server({stall()});
    kept_.beginUse();
    const int fd = connectedTo(server);
    kept_.endUse();
    kept_.beginUse();
    pollfd polled = {.fd = fd, .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&polled, 1, 200), 0);
    EXPECT_EQ(server.closedByClient(), 0);
    kept_.endUse();
    EXPECT_TRUE(server.waitForClosedByClient(1));
    network::KeptConnections::close(&kept_, fd);
}

TEST_F(KeptConnections, TheThreadStartsAgainForTheNextOnes) {
    const Server server({stall()});
    for (int round = 1; round <= 3; ++round) {
        kept_.beginUse();
        const int fd = connectedTo(server);
        kept_.endUse();
        EXPECT_TRUE(server.waitForClosedByClient(round));
        network::KeptConnections::close(&kept_, fd);
    }
}

} // namespace
