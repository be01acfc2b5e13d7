// Shared by the tests of downloads: one request to a scripted encoder, and everything it reports.
#pragma once

#include "libcommon/src/network_fixture.h"
#include "tests/support/scripted_server.h"

#include <libcommon/network.h>

#include <array>
#include <string>

class DownloadTest : public NetworkTest {
protected:
    static constexpr int bufferSize = 4096;

    // The arguments of a download.
    struct Asked {
        std::string path = "/path";
        std::string user = "";
        std::string password = "";
        int size = bufferSize; // 0: no buffer
        int timeout = 10;
    };

    // The results of a download.
    struct Got {
        int result = 0;
        std::string body; // as many bytes as the result says
        ConnectMode mode = CONNECT_UNKNOWN;
        unsigned short port = 0;
        std::string host;
        std::string error;
        double milliseconds = 0;
    };

    Got get(const std::string& address, const Asked& asked) { return download_(address, asked); }
    Got get(const scripted::Server& server, const Asked& asked) {
        return download_(addressOf(server), asked);
    }
    Got get(const scripted::Server& server) { return download_(addressOf(server), Asked{}); }

    Got getHttp(unsigned short port, const Asked& asked, bool withCredentials = true) {
        Got got;
        std::array<char, errorBufferSize> error = {"untouched"};
        const Stopwatch time;
        got.result = downloadHTTP("127.0.0.1", port, asked.path, withCredentials, asked.user, asked.password,
                                  bufferOf(asked), asked.size, asked.timeout, error.data());
        got.milliseconds = time.milliseconds();
        got.error = error.data();
        return withBody(got);
    }

    Got getHttps(unsigned short port, const Asked& asked, const std::string& host = "127.0.0.1") {
        Got got;
        const Stopwatch time;
        got.result = downloadHTTPS(host, port, asked.path, asked.user, asked.password, bufferOf(asked),
                                   asked.size, asked.timeout);
        got.milliseconds = time.milliseconds();
        return withBody(got);
    }

    static std::string addressOf(const scripted::Server& server) {
        return "127.0.0.1:" + std::to_string(server.port());
    }

    static std::string firstLine(const std::string& request) {
        return request.substr(0, request.find("\r\n"));
    }

    static bool isTransportFailure(int result) { return result <= -1 && result >= -99; }

private:
    Got download_(const std::string& address, const Asked& asked) {
        Got got;
        std::array<char, hostBufferSize> host = {"untouched"};
        const Stopwatch time;
        got.result = download(address, asked.user, asked.password, asked.path, bufferOf(asked), asked.size,
                              asked.timeout, &got.mode, &got.port, host.data());
        got.milliseconds = time.milliseconds();
        got.host = host.data();
        return withBody(got);
    }

    char* bufferOf(const Asked& asked) {
        buffer_.assign(static_cast<std::size_t>(bufferSize), '#');
        return asked.size == 0 ? nullptr : buffer_.data();
    }

    Got withBody(Got got) const {
        if (got.result > 0)
            got.body = buffer_.substr(0, static_cast<std::size_t>(got.result));
        // Not a byte beyond the result: no terminating zero either.
        if (got.result > 0 && got.result < bufferSize) {
            EXPECT_EQ(buffer_.find_first_not_of('#', static_cast<std::size_t>(got.result)),
                      std::string::npos);
        }
        return got;
    }

    std::string buffer_;
};
