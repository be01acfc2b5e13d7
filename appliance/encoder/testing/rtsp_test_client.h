// An RTSP client for tests that gives access to every byte.
#pragma once

#include "appliance/encoder/testing/test_client.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

inline constexpr const char* rtspTestPath = "/mpeg4/1/media.orv";
inline constexpr const char* everyRtspKind = "mjpeg,rtsp-unicast,rtsp-multicast,rtsp-tcp,rtsp-http";

inline std::string basicCredentials(const std::string& userAndPassword) {
    return "Authorization: Basic " + base64Encoded(userAndPassword) + "\r\n";
}

// The HTTP request that opens one half of a tunnel: GET for the replies, POST for the requests.
// Both halves of a tunnel have the same cookie, which no other tunnel has.
inline std::string tunnelHead(const std::string& method, const std::string& cookie = "abc123") {
    return method + " " + rtspTestPath + " HTTP/1.0\r\nx-sessioncookie: " + cookie + "\r\n" +
           (method == "POST" ? "Content-Length: 32767\r\n\r\n" : "\r\n");
}

// Sends requests as a decoder does: bare paths, few headers.
class RtspClient {
public:
    explicit RtspClient(std::uint16_t port, int receiveBufferBytes = 0) : tcp(port, receiveBufferBytes) {}

    ClientReply ask(const std::string& method, const std::string& url, const std::string& headers = {}) {
        tcp.send(method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(++number_) + "\r\n" + headers +
                 "\r\n");
        // Packets of a stream that others watch already may come before the answer to PLAY.
        while (tcp.nextByte() == '$') {
            if (!packet())
                break;
        }
        ClientReply reply = tcp.readReply();
        if (reply.status != 0) {
            EXPECT_EQ(reply.headers["cseq"], std::to_string(number_));
        }
        return reply;
    }
    ClientReply setUp(const std::string& transport, const std::string& headers = {}) {
        ClientReply reply = ask("SETUP", std::string(rtspTestPath) + "/trackID=1",
                                headers + "Transport: " + transport + "\r\n");
        const std::string& id = reply.headers["session"];
        session = "Session: " + id.substr(0, id.find(';')) + "\r\n";
        return reply;
    }
    // The next interleaved packet: its channel and its bytes.
    std::optional<std::pair<int, std::string>> packet() {
        const auto head = tcp.readBytes(4);
        if (!head || (*head)[0] != '$')
            return std::nullopt;
        const std::size_t size =
            static_cast<std::uint8_t>((*head)[2]) * 256U + static_cast<std::uint8_t>((*head)[3]);
        const auto body = tcp.readBytes(size);
        return body ? std::optional(std::pair<int, std::string>((*head)[1], *body)) : std::nullopt;
    }

    Client tcp;
    std::string session; // the header line, after setUp()

private:
    int number_ = 0;
};
