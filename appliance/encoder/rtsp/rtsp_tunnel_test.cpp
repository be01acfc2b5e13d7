// RTSP tunnels through HTTP, plain and under TLS.
#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"

#include <array>
#include <chrono>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr const char* path = rtspTestPath;

// A connection under TLS that gives access to every byte.
class TlsClient {
public:
    explicit TlsClient(std::uint16_t port) : curl_(curl_easy_init()) {
        curl_easy_setopt(curl_, CURLOPT_URL, ("https://127.0.0.1:" + std::to_string(port)).c_str());
        curl_easy_setopt(curl_, CURLOPT_CONNECT_ONLY, 1L);
        curl_easy_setopt(curl_, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl_, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl_, CURLOPT_NOPROXY, "*");
        EXPECT_EQ(curl_easy_perform(curl_), CURLE_OK);
    }
    ~TlsClient() { curl_easy_cleanup(curl_); }
    TlsClient(const TlsClient&) = delete;
    TlsClient& operator=(const TlsClient&) = delete;

    void send(const std::string& bytes) {
        std::size_t sent = 0;
        EXPECT_EQ(curl_easy_send(curl_, bytes.data(), bytes.size(), &sent), CURLE_OK);
        EXPECT_EQ(sent, bytes.size());
    }
    // The bytes up to and including `mark`. If it does not arrive within ten seconds: a failure, and the bytes so far.
    std::string readUntil(const std::string& mark) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        std::size_t at = 0;
        while ((at = pending_.find(mark)) == std::string::npos) {
            std::array<char, 4096> buffer{};
            std::size_t count = 0;
            const CURLcode result = curl_easy_recv(curl_, buffer.data(), buffer.size(), &count);
            pending_.append(buffer.data(), count);
            if ((result == CURLE_OK && count == 0) || std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "no '" << mark << "'";
                return pending_;
            }
            if (result == CURLE_AGAIN)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const std::string text = pending_.substr(0, at + mark.size());
        pending_.erase(0, text.size());
        return text;
    }

private:
    CURL* curl_;
    std::string pending_;
};

} // namespace

TEST(RtspTunnel, PlaysThroughHttp) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--user", "joe", "--password", "pw"});
    Client down(encoder.http());
    down.send(tunnelHead("GET"));
    EXPECT_EQ(down.readHead().headers["content-type"], "application/x-rtsp-tunnelled");
    Client up(encoder.http());
    up.send(tunnelHead("POST"));
    const auto ask = [&](const std::string& method, const std::string& url, const std::string& headers) {
        up.send(base64Encoded(method + " " + url + " RTSP/1.0\r\nCSeq: 1\r\n" + headers + "\r\n"));
        return down.readReply();
    };
    EXPECT_EQ(ask("DESCRIBE", path, {}).status, 401);
    EXPECT_EQ(ask("DESCRIBE", path, basicCredentials("joe:pw")).status, 200);
    EXPECT_EQ(ask("SETUP", std::string(path) + "/trackID=1",
                  basicCredentials("joe:pw") + "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n")
                  .status,
              461)
        << "packets can only go through the tunnel";
    ClientReply reply = ask("SETUP", std::string(path) + "/trackID=1",
                            basicCredentials("joe:pw") + "Transport: RTP/AVP/TCP;interleaved=0-1\r\n");
    EXPECT_EQ(reply.status, 200);
    const std::string session = reply.headers["session"].substr(0, reply.headers["session"].find(';'));
    EXPECT_EQ(ask("PLAY", path, basicCredentials("joe:pw") + "Session: " + session + "\r\n").status, 200);
    EXPECT_EQ(down.readBytes(1).value_or(""), "$");
}

TEST(RtspTunnel, PlaysThroughHttps) {
    const TestEncoder encoder({"--https", "--kinds", "rtsp-http"});
    TlsClient down(encoder.https());
    down.send(tunnelHead("GET"));
    EXPECT_THAT(down.readUntil("\r\n\r\n"), testing::HasSubstr("x-rtsp-tunnelled"));
    TlsClient up(encoder.https());
    up.send(tunnelHead("POST"));
    const auto ask = [&](const std::string& method, const std::string& target, const std::string& headers) {
        up.send(base64Encoded(method + " " + target + " RTSP/1.0\r\nCSeq: 1\r\n" + headers + "\r\n"));
        return down.readUntil("\r\n\r\n");
    };
    EXPECT_THAT(ask("DESCRIBE", path, {}), testing::StartsWith("RTSP/1.0 200"));
    EXPECT_THAT(down.readUntil("a=control:trackID=1\r\n"),
                testing::HasSubstr("o=- 1 1 IN IP4 127.0.0.1\r\n"));
    const std::string reply =
        ask("SETUP", std::string(path) + "/trackID=1", "Transport: RTP/AVP/TCP;interleaved=0-1\r\n");
    const std::size_t session = reply.find("Session: ");
    ASSERT_NE(session, std::string::npos) << reply;
    const std::string line = reply.substr(session, reply.find(';', session) - session) + "\r\n";
    EXPECT_THAT(ask("PLAY", path, line), testing::HasSubstr("RTSP/1.0 200"));
    down.readUntil(std::string("\0\0\1\xB0", 4)); // the first bytes of a key picture
    EXPECT_THAT(get(encoder.http(), "/requests").body, testing::HasSubstr("\"method\": \"PLAY\""));
}

TEST(RtspTunnel, EndsWithItsClientUnderTls) {
    TestEncoder encoder({"--https", "--kinds", "rtsp-http"});
    for (int round = 0; round < 3; ++round) {
        const std::string cookie = "round" + std::to_string(round);
        TlsClient down(encoder.https());
        down.send(tunnelHead("GET", cookie));
        down.readUntil("\r\n\r\n");
        TlsClient up(encoder.https());
        up.send(tunnelHead("POST", cookie));
        up.send(base64Encoded(std::string("DESCRIBE ") + path + " RTSP/1.0\r\nCSeq: 1\r\n\r\n"));
        down.readUntil("RTSP/1.0 200");
        if (round == 2) {
            encoder.stop(); // returns although both halves are open
            return;
        }
    }
}
