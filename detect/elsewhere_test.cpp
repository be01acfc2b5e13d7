// Encoders that send a detection elsewhere: it asks the configured host, whatever the answers say.
#include "detect/network_detection_fixture.h"
#include "tests/support/trap.h"

#include <gtest/gtest.h>

namespace detect_test {
namespace {

struct Trick {
    const char* name;
    const char* request; // a part of the first line of the request that gets the answer
    const char* answer;
};

void PrintTo(const Trick& trick, std::ostream* out) {
    *out << trick.name;
}

class ElsewhereDetection : public NetworkDetection, public testing::WithParamInterface<Trick> {};

TEST_P(ElsewhereDetection, AsksOnlyTheConfiguredHost) {
    const Trap trap;
    ASSERT_TRUE(trap.isSet());
    const Trick& trick = GetParam();
    bool reached = false;
    UnicastEncoder unicast;
    Encoder::Answers answers = unicast.answers();
    answers[trick.request] = [&](const std::string&) {
        reached = true;
        return baited(trick.answer, trap);
    };
    detect(Encoder(answers), 1);
    EXPECT_TRUE(reached) << "nobody asked for it\n" << trace();
    EXPECT_FALSE(trap.caught()) << trace();
}

TEST(Trap, CatchesAConnectionAndADatagram) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const Trap trap;
        ASSERT_TRUE(trap.isSet());
        EXPECT_FALSE(trap.caught());
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(trap.port())));
        inet_pton(AF_INET, Trap::host(), &address.sin_addr);
        const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_TRUE(type == SOCK_STREAM || ::send(fd, "x", 1, 0) == 1);
        EXPECT_TRUE(trap.caught());
        close(fd);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tricks, ElsewhereDetection,
    testing::Values(
        Trick{"ParameterRedirection", "param.cgi",
              "HTTP/1.1 302 Found\r\nLocation: http://HOST:PORT/param.cgi\r\nContent-Length: 0\r\n\r\n"},
        Trick{"ParameterRedirectionToAFile", "param.cgi",
              "HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n"},
        Trick{"ParameterProxy", "param.cgi",
              "HTTP/1.1 305 Use Proxy\r\nLocation: http://HOST:PORT/\r\nContent-Length: 0\r\n\r\n"},
        Trick{"DescribeRedirection", "DESCRIBE",
              "RTSP/1.0 302 Found\r\nCSeq: 0\r\nLocation: rtsp://HOST:PORT/live\r\n\r\n"},
        Trick{"DescriptionOfAnotherHost", "DESCRIBE",
              "RTSP/1.0 200 OK\r\nCSeq: 0\r\nContent-Base: rtsp://HOST:PORT/\r\nContent-Length: 26\r\n\r\n"
              "v=0\r\nc=IN IP4 127.0.0.77\r\n"},
        Trick{"TransportToAnotherHost", "SETUP",
              "RTSP/1.0 200 OK\r\nCSeq: 0\r\nSession: 4711\r\nTransport: "
              "RTP/AVP;unicast;client_port=20004-20005;"
              "destination=HOST;source=HOST;server_port=PORT-PORT\r\n\r\n"},
        Trick{"GroupThatIsAHost", "SETUP",
              "RTSP/1.0 200 OK\r\nCSeq: 0\r\nSession: 4711\r\n"
              "Transport: RTP/AVP;multicast;destination=HOST;port=PORT-PORT;ttl=1\r\n\r\n"},
        Trick{"RedirectionWhilePlaying", "PLAY",
              "RTSP/1.0 302 Found\r\nCSeq: 0\r\nLocation: rtsp://HOST:PORT/live\r\n\r\n"}),
    [](const auto& trick) { return std::string(trick.param.name); });

} // namespace
} // namespace detect_test
