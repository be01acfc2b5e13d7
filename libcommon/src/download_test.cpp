// Downloads from encoders that behave.
#include "libcommon/src/download_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

using namespace scripted;

namespace {

using Download = DownloadTest;

TEST_F(Download, ABodyWithItsLength) {
    const Server server({readRequest(), send(reply("200 OK", "root.Brand=x\n"))});
    const Got got = get(server, {.path = "/view?x=1&y"});
    EXPECT_EQ(got.result, 13);
    EXPECT_EQ(got.body, "root.Brand=x\n");
    EXPECT_EQ(got.mode, CONNECT_HTTP);
    EXPECT_EQ(got.port, server.port());
    EXPECT_EQ(got.host, "127.0.0.1");
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(firstLine(server.requests()[0]), "GET /view?x=1&y HTTP/1.1");
    EXPECT_NE(server.requests()[0].find("Host: " + addressOf(server) + "\r\n"), std::string::npos);
    EXPECT_EQ(log(), "");
}

TEST_F(Download, AChunkedBody) {
    const Server server({readRequest(), send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                             "5\r\nhello\r\n6;x=y\r\n world\r\n0\r\nTrailer: 1\r\n\r\n")});
    EXPECT_EQ(get(server).body, "hello world");
}

TEST_F(Download, ABodyThatEndsWithTheConnection) {
    const Server server({readRequest(), send("HTTP/1.0 200 OK\r\n\r\nuntil close"), close()});
    EXPECT_EQ(get(server).body, "until close");
}

TEST_F(Download, AnEmptyBodyIsZero) {
    const Server server({readRequest(), send(reply("200 OK", "")), readRequest(),
                         send("HTTP/1.1 204 No Content\r\n\r\n"), startOver()});
    EXPECT_EQ(get(server).result, 0);
    EXPECT_EQ(get(server).result, 0);
}

TEST_F(Download, InformationBeforeTheAnswerIsPassedOver) {
    const Server server(
        {readRequest(), send("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" +
                             reply("200 OK", "hello"))});
    EXPECT_EQ(get(server).body, "hello");
}

TEST_F(Download, TheOutArgumentsMayBeMissing) {
    const Server server({readRequest(), send(reply("200 OK", "hello")), startOver()});
    char buffer[10];
    EXPECT_EQ(download(addressOf(server), "", "", "/", buffer, sizeof buffer, 5, nullptr, nullptr, nullptr),
              5);
    EXPECT_EQ(downloadHTTP("127.0.0.1", server.port(), "/", false, "", "", buffer, sizeof buffer, 5, nullptr),
              5);
}

TEST_F(Download, WithoutABufferTheBodyIsDropped) {
    const Server server({readRequest(), send(reply("200 OK", "hello")), startOver()});
    EXPECT_EQ(get(server, {.size = 0}).result, 0);
    EXPECT_EQ(getHttp(server.port(), {.size = 0}).result, 0);
    char unused = '#';
    EXPECT_EQ(download(addressOf(server), "", "", "/", &unused, 0, 5, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(unused, '#');
}

TEST_F(Download, ThePathIsSentUnchanged) {
    const Server server({readRequest(), send(reply("200 OK", "x")), startOver()});
    const std::vector<std::string> paths = {"/vexo-cgi/com/ptz.cgi?gotoserverpresetname=Front Door & Yard",
                                            "/a b/c",
                                            "/../x/./y",
                                            "/%2F%2f%zz",
                                            "/#part?x=#y",
                                            "/\"<>\\^`{|}",
                                            "/caf\xc3\xa9?\xff",
                                            "/??",
                                            "*",
                                            "relative",
                                            "?query"};
    for (const std::string& path : paths) {
        EXPECT_EQ(get(server, {.path = path}).result, 1) << path;
        EXPECT_EQ(firstLine(server.requests().back()), "GET " + path + " HTTP/1.1");
    }
    EXPECT_EQ(get(server, {.path = ""}).result, 1);
    EXPECT_EQ(firstLine(server.requests().back()), "GET / HTTP/1.1");
}

TEST_F(Download, AControlCharacterInThePathIsRefusedBeforeAnythingIsSent) {
    const Server server({readRequest(), send(reply("200 OK", "x"))});
    for (const std::string path : {"/x\r\nEvil: 1", "/x\ny", "/\x7f", "/a\tb"}) {
        EXPECT_EQ(get(server, {.path = path}).result, -3);
        EXPECT_EQ(getHttp(server.port(), {.path = path}).result, -3);
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(Download, AnAddressThatCanNotBeReadIsATransportFailureAndLogged) {
    for (const char* address : {"", ":80", "127.0.0.1:0", "http://127.0.0.1"})
        EXPECT_EQ(get(address, {}).result, -3) << address;
    EXPECT_NE(log().find("Can't read the address \"127.0.0.1:0\""), std::string::npos);
}

TEST_F(Download, RefusalsAreMinusTheStatus) {
    const std::vector<std::string> statuses = {"300 Multiple",  "304 Same",   "400 Bad",   "403 No",
                                               "404 Not Found", "500 Broken", "503 Later", "999 What"};
    std::vector<Script> scripts;
    scripts.reserve(statuses.size());
    for (const std::string& status : statuses)
        scripts.push_back({readRequest(), send(reply(status, "page", "Connection: close\r\n"))});
    const Server server(scripts);
    for (const std::string& status : statuses) {
        const Got got = getHttp(server.port(), {});
        EXPECT_EQ(got.result, -std::stoi(status));
        EXPECT_EQ(got.error, "refused with HTTP status " + status.substr(0, 3));
    }
}

TEST_F(Download, ARefusalLeavesTheOutArgumentsAlone) {
    const Server server({readRequest(), send(reply("404 Not Found", ""))});
    const Got got = get(server);
    EXPECT_EQ(got.result, -404);
    EXPECT_EQ(got.mode, CONNECT_UNKNOWN);
    EXPECT_EQ(got.port, 0);
    EXPECT_EQ(got.host, "untouched");
    EXPECT_EQ(log(), ""); // an encoder that lacks something is not an error
}

TEST_F(Download, RedirectsAreRefusalsAndNotFollowed) {
    const Server target({readRequest(), send(reply("200 OK", "x"))});
    for (const std::string status : {"301", "302", "303", "307", "308"}) {
        const Server server({readRequest(), send(reply(status + " Moved", "",
                                                       "Location: http://" + addressOf(target) + "/\r\n"))});
        EXPECT_EQ(get(server).result, -std::stoi(status));
    }
    EXPECT_EQ(target.connections(), 0);
}

TEST_F(Download, AFullBufferEndsTheTransferWithSuccess) {
    const Server server({readRequest(), send("HTTP/1.1 200 OK\r\nContent-Length: 104857600\r\n\r\n"),
                         sendEndlessly(std::string(65536, 'v'))});
    const Got got = get(server, {.size = 1024});
    EXPECT_EQ(got.result, 1024);
    EXPECT_EQ(got.body, std::string(1024, 'v'));
    EXPECT_LT(got.milliseconds, 5000);
    EXPECT_TRUE(server.waitForClosedByClient(1));
}

TEST_F(Download, OneByteOfAnEndlessStreamIsEnough) {
    const Server server(
        {readRequest(),
         send("HTTP/1.0 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n--b\r\n"),
         sendEndlessly(std::string(10000, 'j'))});
    const Got got = get(server, {.size = 1});
    EXPECT_EQ(got.result, 1);
    EXPECT_EQ(got.body, "-");
    EXPECT_LT(got.milliseconds, 5000);
    EXPECT_TRUE(server.waitForClosedByClient(1));
}

TEST_F(Download, OneByteThenSilenceIsEnoughToo) {
    const Server server({readRequest(), send("HTTP/1.1 200 OK\r\n\r\n-"), stall()});
    const Got got = get(server, {.size = 1});
    EXPECT_EQ(got.result, 1);
    EXPECT_LT(got.milliseconds, 5000);
}

TEST_F(Download, ABodyThatFillsTheBufferExactlyKeepsTheConnection) {
    const Server server({readRequest(), send(reply("200 OK", "x")), startOver()});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(get(server, {.size = 1}).body, "x");
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(Download, IPv6) {
    const Server server({readRequest(), send(reply("200 OK", "six"))}, {.address = "::1"});
    const Got got = get("[::1]:" + std::to_string(server.port()), {});
    EXPECT_EQ(got.body, "six");
    EXPECT_EQ(got.host, "::1");
    EXPECT_NE(server.requests().at(0).find("Host: [::1]:"), std::string::npos);
}

TEST_F(Download, ANameWithSeveralAddresses) {
    const Server server({readRequest(), send(reply("200 OK", "name")), startOver()});
    const Got got = get("localhost:" + std::to_string(server.port()), {});
    EXPECT_EQ(got.body, "name");
    EXPECT_EQ(got.host, "localhost");
    EXPECT_NE(server.requests().at(0).find("Host: localhost:"), std::string::npos);
}

TEST_F(Download, ALongHostDoesNotOverrunItsBuffer) {
    const Got got = get(std::string(255, 'a') + ".:1", {.timeout = 1});
    EXPECT_EQ(got.result, -3); // longer than any host name
}

TEST_F(Download, ProxiesOfTheEnvironmentAreNotUsed) {
    const RefusedPort nowhere;
    const std::string proxy = "http://127.0.0.1:" + std::to_string(nowhere.port());
    for (const char* name : {"http_proxy", "https_proxy", "ALL_PROXY", "all_proxy"})
        setenv(name, proxy.c_str(), 1);
    const Server server({readRequest(), send(reply("200 OK", "direct"))});
    EXPECT_EQ(get(server).body, "direct");
    for (const char* name : {"http_proxy", "https_proxy", "ALL_PROXY", "all_proxy"})
        unsetenv(name);
}

TEST_F(Download, NoConnectionIsMinus4011ForHttpAloneOnly) {
    const RefusedPort refused;
    const Got http = getHttp(refused.port(), {});
    EXPECT_EQ(http.result, -4011);
    EXPECT_NE(http.error, "");
    EXPECT_EQ(get("127.0.0.1:" + std::to_string(refused.port()), {}).result, -7);
    EXPECT_EQ(getHttps(refused.port(), {}).result, -7);
}

TEST_F(Download, NoConnectionWithinTheTimeIsMinus4011Too) {
    const FullBacklog silent;
    const Got got = getHttp(silent.port(), {.timeout = 1});
    EXPECT_EQ(got.result, -4011);
    EXPECT_GE(got.milliseconds, 990);
    EXPECT_LT(got.milliseconds, 3000);
    EXPECT_EQ(get("127.0.0.1:" + std::to_string(silent.port()), {.timeout = 1}).result, -28);
}

TEST_F(Download, ANameThatDoesNotExistIsBounded) {
    const Stopwatch time;
    char error[errorBufferSize] = "";
    EXPECT_EQ(downloadHTTP("no-such-host.invalid", 80, "/", false, "", "", nullptr, 0, 2, error), -4011);
    EXPECT_STRNE(error, "");
    EXPECT_TRUE(isTransportFailure(get("no-such-host.invalid", {.timeout = 2}).result));
    EXPECT_LT(time.milliseconds(), 8000);
}

TEST_F(Download, TransportFailuresAreLoggedWithoutTheQuery) {
    const Server server({readRequest(), close()});
    get(server, {.path = "/cgi?secret=1"});
    EXPECT_NE(log().find("Download of http://" + addressOf(server) + "/cgi failed: "), std::string::npos)
        << log();
    EXPECT_EQ(log().find("secret"), std::string::npos);
}

TEST_F(Download, SuccessEmptiesTheErrorText) {
    const Server server({readRequest(), send(reply("200 OK", "x"))});
    EXPECT_EQ(getHttp(server.port(), {}).error, "");
}

} // namespace
