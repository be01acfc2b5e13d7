// Downloads from encoders that are broken or malicious: a failure within the timeout, and bounded memory.
#include "libcommon/src/download_fixture.h"

using namespace scripted;

namespace {

constexpr double muchLessThanTheTimeout = 5000; // milliseconds, of ten seconds
const std::string ok = "HTTP/1.1 200 OK\r\n";

using DownloadHostile = DownloadTest;

TEST_F(DownloadHostile, EndlessHeadersAreCutOff) {
    for (const std::string& pattern :
         {std::string("X-Padding: yes\r\n"), std::string(4000, 'x'), std::string(" folded\r\n"),
          std::string("HTTP/1.1 100 Continue\r\n\r\n")}) {
        const Server server({readRequest(), send(ok), sendEndlessly(pattern)});
        const Got got = getHttp(server.port(), {});
        EXPECT_TRUE(isTransportFailure(got.result)) << got.result;
        EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
    }
}

TEST_F(DownloadHostile, EndlessInformationIsCutOff) {
    const Server server({readRequest(), sendEndlessly("HTTP/1.1 100 Continue\r\nX: y\r\n\r\n")});
    const Got got = get(server);
    EXPECT_TRUE(isTransportFailure(got.result)) << got.result;
    EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
}

TEST_F(DownloadHostile, AnAnnouncedGigabyteFillsTheBufferAndNoMore) {
    const Server server({readRequest(), send(ok + "Content-Length: 1073741824\r\n\r\n"),
                         sendEndlessly(std::string(65536, 'x'))});
    EXPECT_EQ(get(server).result, bufferSize);
}

TEST_F(DownloadHostile, WithoutABufferAMebibyteIsEnough) {
    const Server server({readRequest(), send(ok + "\r\n"), sendEndlessly(std::string(65536, 'x'))});
    const Got got = get(server, {.size = 0});
    EXPECT_EQ(got.result, 0);
    EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
}

TEST_F(DownloadHostile, NumbersThatDoNotFit) {
    for (const std::string length : {"99999999999999999999999999", "-1", "0x10", "ten", "5, 6"}) {
        const std::string header = std::string("Content-Length: ").append(length);
        const Server server({readRequest(), send(ok + header + "\r\n\r\nhello"), close()});
        const Got got = get(server, {.timeout = 2});
        // A text that begins with a number may be read as that number; bytes after the five are never invented.
        EXPECT_TRUE(isTransportFailure(got.result) || got.result == 0 || got.body == "hello")
            << length << " " << got.result;
    }
    for (const std::string size : {"ffffffffffffffffffff", "-1", "zz", "5x"}) {
        const std::string body = std::string("\r\n\r\n").append(size).append("\r\nhello");
        const Server server({readRequest(), send(ok + "Transfer-Encoding: chunked" + body), close()});
        EXPECT_TRUE(isTransportFailure(get(server, {.timeout = 2}).result)) << size;
    }
}

TEST_F(DownloadHostile, WhatIsNotHttpIsATransportFailure) {
    const std::vector<std::string> garbage = {std::string("\0\1\2\3\xff\xfe garbage", 14),
                                              "SSH-2.0-OpenSSH_9.2\r\n",
                                              "RTSP/1.0 200 OK\r\n\r\n",
                                              "\x15\x03\x01\x02\x02\x0a",
                                              "<html>no header</html>",
                                              "HTTP/1.1\r\n\r\n",
                                              "HTTP/1.1 xyz\r\n\r\n",
                                              "HTTP/1.1 20\r\n\r\n",
                                              "HTTP/1.1 2000 OK\r\n\r\n",
                                              "HTTP/9.9 200 OK\r\n\r\n",
                                              "\r\n\r\n",
                                              "200 OK\r\n\r\n"};
    for (const std::string& bytes : garbage) {
        const Server server({readRequest(), send(bytes), close()});
        const Got got = getHttp(server.port(), {});
        EXPECT_TRUE(isTransportFailure(got.result)) << bytes << ": " << got.result;
        EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
    }
}

TEST_F(DownloadHostile, ATruncatedBodyIsATransportFailure) {
    for (const std::string rest :
         {"Content-Length: 100\r\n\r\nshort", "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
          "Transfer-Encoding: chunked\r\n\r\n64\r\nhello"}) {
        const Server server({readRequest(), send(ok + rest), close()});
        EXPECT_EQ(get(server).result, -18);
    }
}

TEST_F(DownloadHostile, ATruncatedBodyThatFilledTheBufferIsASuccess) {
    const Server server({readRequest(), send(ok + "Content-Length: 100\r\n\r\nshort"), close()});
    EXPECT_EQ(get(server, {.size = 5}).body, "short");
}

TEST_F(DownloadHostile, AcceptingAndNeverAnsweringCostsTheTimeout) {
    const Server server({readRequest(), stall()});
    const Got got = get(server, {.timeout = 1});
    EXPECT_EQ(got.result, -28);
    EXPECT_GE(got.milliseconds, 990);
    EXPECT_LT(got.milliseconds, 3000);
    EXPECT_EQ(server.connections(), 1) << "a silent encoder is not asked again over TLS";
}

TEST_F(DownloadHostile, SlowBytesDoNotStretchTheTimeout) {
    const auto pause = std::chrono::milliseconds(20);
    for (const auto& script : {Script{readRequest(), sendSlowly(ok + std::string(1000, 'x'), pause)},
                               Script{readRequest(), send(ok + "Content-Length: 1000\r\n\r\n"),
                                      sendSlowly(std::string(1000, 'x'), pause)}}) {
        const Server server(script);
        const Got got = get(server, {.timeout = 1});
        EXPECT_EQ(got.result, -28);
        EXPECT_GE(got.milliseconds, 990);
        EXPECT_LT(got.milliseconds, 3000);
    }
}

TEST_F(DownloadHostile, AStreamWithoutEndOrBufferLimitEndsWithTheTimeout) {
    const Server server({readRequest(), send(ok + "Content-Length: 1000\r\n\r\nsome"), stall()});
    EXPECT_EQ(get(server, {.size = 0, .timeout = 1}).result, -28);
}

TEST_F(DownloadHostile, ClosingOrResettingAtEveryStep) {
    const std::vector<Script> beginnings = {{},
                                            {readRequest()},
                                            {readRequest(), send("HT")},
                                            {readRequest(), send(ok)},
                                            {readRequest(), send(ok + "Content-Length: 5\r\n\r\n")},
                                            {readRequest(), send(ok + "Content-Length: 5\r\n\r\nhel")}};
    for (const Script& beginning : beginnings)
        for (const Step& end : {close(), reset()}) {
            Script script = beginning;
            script.push_back(end);
            const Server server(script);
            const Got got = getHttp(server.port(), {});
            // A reset may come before the connection was noticed.
            const bool noConnection = beginning.empty() && got.result == -4011;
            EXPECT_TRUE(isTransportFailure(got.result) || noConnection)
                << got.result << " after " << beginning.size();
            EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
            EXPECT_NE(got.error, "");
        }
}

TEST_F(DownloadHostile, ARefusedBodyIsNotReadToItsEnd) {
    const std::vector<Script> refusals = {
        {readRequest(), send("HTTP/1.1 404 No\r\nContent-Length: 1000000000\r\n\r\n"),
         sendEndlessly(std::string(9999, 'x'))},
        {readRequest(), send("HTTP/1.1 404 No\r\n\r\n"), sendEndlessly(std::string(9999, 'x'))},
        {readRequest(), send("HTTP/1.1 404 No\r\nContent-Length: 1000\r\n\r\nstuck"), stall()},
        {readRequest(), send("HTTP/1.1 404 No\r\nContent-Length: 1000\r\n\r\n"),
         sendSlowly(std::string(1000, 'x'), std::chrono::milliseconds(20))},
        {readRequest(), send("HTTP/1.1 404 No\r\nContent-Length: 1000\r\n\r\nshort"), close()},
        {readRequest(), send("HTTP/1.1 404 No\r\nContent-Length: 1000\r\n\r\nshort"), reset()}};
    for (const Script& refusal : refusals) {
        const Server server(refusal);
        const Got got = get(server);
        EXPECT_EQ(got.result, -404);
        EXPECT_LT(got.milliseconds, muchLessThanTheTimeout);
    }
}

TEST_F(DownloadHostile, ATrailerThatLooksLikeAResponseIsNone) {
    const Server server({readRequest(), send(ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n"
                                                  "HTTP/1.1 404 Not Found\r\nX: y\r\n\r\n")});
    const Got got = getHttp(server.port(), {});
    EXPECT_TRUE(got.body == "hello" || isTransportFailure(got.result)) << got.result;
}

TEST_F(DownloadHostile, CompressionIsNeverAskedForNorUnpacked) {
    const Server server({readRequest(), send(reply("200 OK", "\x1f\x8b", "Content-Encoding: gzip\r\n"))});
    EXPECT_EQ(get(server).body, "\x1f\x8b");
    EXPECT_EQ(server.requests().at(0).find("Encoding"), std::string::npos);
}

} // namespace
