// In a network namespace that each test makes for itself; skipped where none can be made.
#include "appliance/encoder/network_namespace.h"
#include "appliance/encoder/test_client.h"

#include <arpa/inet.h>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

// A member of a group.
class Member {
public:
    Member(const char* group, std::uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ip_mreq membership{};
        inet_pton(AF_INET, group, &membership.imr_multiaddr);
        EXPECT_EQ(setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
    }
    ~Member() { close(fd_); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    std::string receive(int milliseconds = 10000) const {
        pollfd poller{fd_, POLLIN, 0};
        std::array<char, 2048> buffer{};
        if (poll(&poller, 1, milliseconds) <= 0)
            return {};
        const ssize_t count = recv(fd_, buffer.data(), buffer.size(), 0);
        return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
    }

private:
    int fd_;
};

std::string sessionOf(ClientReply reply) {
    const std::string id = reply.headers["session"];
    return "Session: " + id.substr(0, id.find(';')) + "\r\n";
}

ClientReply ask(Client& client, const std::string& request, const std::string& headers = {}) {
    client.send(request + " RTSP/1.0\r\nCSeq: 1\r\n" + headers + "\r\n");
    return client.readReply();
}

class Multicast : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = enterOwnNetwork(); !reason.empty())
            GTEST_SKIP() << reason;
    }
};

} // namespace

TEST_F(Multicast, RtspSendsToTheGroupWhileSomebodyPlays) {
    const TestEncoder encoder({"--kinds", "rtsp-multicast", "--inputs", "2"});
    const Member data("239.255.77.2", 5000);
    const Member control("239.255.77.2", 5001);
    EXPECT_EQ(data.receive(300), "") << "nobody plays yet";
    Client client(encoder.rtsp());
    ClientReply reply = ask(client, "SETUP /mpeg4/2/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
    ASSERT_EQ(reply.status, 200);
    EXPECT_THAT(reply.headers["transport"], testing::AllOf(testing::HasSubstr("destination=239.255.77.2;"),
                                                           testing::HasSubstr("ttl=1;port=5000-5001")));
    const std::string session = sessionOf(reply);
    ASSERT_EQ(ask(client, "PLAY /mpeg4/2/media.orv", session).status, 200);
    const std::string packet = data.receive();
    ASSERT_GT(packet.size(), 12U);
    EXPECT_EQ(packet[1] & 0x7F, 96);
    const std::string report = control.receive();
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(report[1], '\xC8');

    // A second client shares the stream, and the first one's end does not end it.
    Client second(encoder.rtsp());
    reply = ask(second, "SETUP /mpeg4/2/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
    const std::string secondSession = sessionOf(reply);
    ASSERT_EQ(ask(second, "PLAY /mpeg4/2/media.orv", secondSession).status, 200);
    ASSERT_EQ(ask(client, "TEARDOWN /mpeg4/2/media.orv", session).status, 200);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(data.receive().substr(8, 4), packet.substr(8, 4)) << "one sender for all";
    ASSERT_EQ(ask(second, "TEARDOWN /mpeg4/2/media.orv", secondSession).status, 200);
    const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!data.receive(300).empty())
        ASSERT_LT(std::chrono::steady_clock::now(), bound);
}

// Players of a decoder on this machine take ports from 20000 on, each for itself.
TEST_F(Multicast, PortsThatOthersHaveTakenDoNotMatter) {
    std::vector<std::unique_ptr<Member>> others;
    for (const int first : {20000, 42000}) {
        for (int i = 0; i < 300; ++i)
            others.push_back(
                std::make_unique<Member>("239.255.76.1", static_cast<std::uint16_t>(first + 2 * i)));
    }
    const TestEncoder encoder({"--kinds", "rtsp-multicast"});
    const Member data("239.255.77.1", 5000);
    for (int round = 0; round < 3; ++round) {
        Client client(encoder.rtsp());
        ClientReply reply =
            ask(client, "SETUP /mpeg4/1/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
        ASSERT_EQ(reply.status, 200);
        const std::string session = sessionOf(reply);
        ASSERT_EQ(ask(client, "PLAY /mpeg4/1/media.orv", session).status, 200);
        EXPECT_FALSE(data.receive().empty());
        ASSERT_EQ(ask(client, "TEARDOWN /mpeg4/1/media.orv", session).status, 200);
    }
}

TEST_F(Multicast, TheGuidesStreamIsAlwaysThereWithAndWithoutSound) {
    for (const bool sound : {true, false}) {
        std::vector<std::string> words{"--kinds",          "sdp", "--multicast", "239.255.78.1",
                                       "--multicast-port", "6000"};
        if (sound)
            words.emplace_back("--audio");
        const TestEncoder encoder(words);
        const ClientReply guide = get(encoder.http(), "/view/sdp/guide.sdp");
        EXPECT_THAT(guide.body, testing::HasSubstr("m=video 6010 RTP/AVP 32\r\nc=IN IP4 239.255.78.1/1\r\n"));
        EXPECT_EQ(guide.body.find("m=audio 6020 RTP/AVP 14\r\nc=IN IP4 239.255.78.1/1\r\n") !=
                      std::string::npos,
                  sound);
        const Member video("239.255.78.1", 6010);
        const std::string packet = video.receive();
        ASSERT_GT(packet.size(), 16U);
        EXPECT_EQ(packet[1] & 0x7F, 32);
        const Member audio("239.255.78.1", 6020);
        if (sound) {
            const std::string heard = audio.receive();
            ASSERT_GT(heard.size(), 16U);
            EXPECT_EQ(heard[1] & 0x7F, 14);
            EXPECT_EQ(static_cast<std::uint8_t>(heard[16]), 0xFF) << "a frame of MPEG audio";
        } else {
            EXPECT_EQ(audio.receive(300), "");
        }
    }
}
