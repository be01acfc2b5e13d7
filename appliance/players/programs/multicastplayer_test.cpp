// multicastplayer as the supervisor runs it, in a network namespace.
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/players/testing/player_test.h"
#include "appliance/players/testing/test_stream.h"

#include <arpa/inet.h>
#include <gst/gst.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace player {
namespace {

constexpr const char* group = "239.1.2.3";

std::string sink(const char* to, int port) {
    return std::string(" ! udpsink auto-multicast=false loop=true ttl-mc=1 host=") + to +
           " port=" + std::to_string(port);
}

class MulticastPlayer : public PlayerTest {
protected:
    void SetUp() override {
        if (!network_.empty())
            GTEST_SKIP() << network_;
    }
    // Ten seconds of pictures of source 8, encoded once.
    static const std::string& pictures() {
        static const std::string one = mpeg2Stream(8, 250);
        return one;
    }
    pid_t start(std::vector<std::string> where, int patienceMs = 10'000) {
        std::vector<std::string> arguments{
            "-m", "pal", "-o", "tv", "-n", "2", "-v", "-r", std::to_string(patienceMs)};
        arguments.insert(arguments.end(), where.begin(), where.end());
        return supervisor_.start(PLAYER, arguments);
    }
};

TEST_F(MulticastPlayer, ShowsElementaryAndTransportStreams) {
    for (const std::string payload : {"rtpmpvpay", "mpegtsmux ! rtpmp2tpay"}) {
        const TestStream stream = TestStream::paced(pictures(), payload + sink(group, 5004));
        ASSERT_TRUE(stream.good());
        showsAndLeaves(start({group, "5004"}), 8);
        EXPECT_EQ(store_.newestInfo().source, 2);
    }
}

TEST_F(MulticastPlayer, TwoPlayersReceiveOneGroup) {
    const TestStream stream = TestStream::paced(pictures(), "rtpmpvpay" + sink(group, 5004));
    const pid_t one = start({group, "5004"});
    const pid_t two = start({group, "5004"});
    EXPECT_TRUE(supervisor_.arrived(one, 0));
    EXPECT_TRUE(supervisor_.arrived(two, 0));
}

TEST_F(MulticastPlayer, AnotherGroupOnTheSamePortIsNotReceived) {
    const TestStream other = TestStream::paced(pictures(), "rtpmpvpay" + sink("239.1.2.9", 5004));
    const pid_t neighbour = start({"239.1.2.9", "5004"});
    EXPECT_TRUE(supervisor_.arrived(neighbour, 0));
    EXPECT_EQ(supervisor_.end(start({group, "5004"}, 700)), 11);
}

TEST_F(MulticastPlayer, SoundComesFromItsOwnGroup) {
    const TestStream stream = TestStream::paced(
        pictures(), "rtpmpvpay" + sink(group, 5004),
        "audiotestsrc is-live=true ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay" +
            sink("239.1.2.4", 5006));
    showsAndLeaves(start({group, "5004", "239.1.2.4", "5006"}), 8);
}

TEST_F(MulticastPlayer, SilentGroupIsElevenAndStalledOneTwentyThree) {
    EXPECT_EQ(supervisor_.end(start({group, "5004"}, 400)), 11);
    const TestStream stream = TestStream::paced(mpeg2Stream(8, 150), "rtpmpvpay" + sink(group, 5004));
    // The limit also applies to the first picture, which takes long on a loaded machine.
    EXPECT_EQ(supervisor_.end(start({group, "5004"}, 4000)), 23);
}

TEST_F(MulticastPlayer, UnicastAddressIsReceivedToo) {
    const TestStream stream = TestStream::paced(pictures(), "rtpmpvpay" + sink("127.0.0.1", 5014));
    showsAndLeaves(start({"127.0.0.1", "5014"}), 8);
}

TEST_F(MulticastPlayer, NonsenseIsEleven) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(5024);
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    const pid_t pid = start({"127.0.0.1", "5024"}, 1500);
    std::string packet("\x80\x20\0\1\0\0\0\0\0\0\0\1", 12); // an RTP header for MPEG-2 video
    for (int i = 0; supervisor_.running(pid); ++i) {
        packet[3] = static_cast<char>(i);
        const std::string sent =
            i % 3 == 0 ? "?" : packet + std::string(static_cast<std::size_t>(i % 1400), '\x5a');
        sendto(fd, sent.data(), sent.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        usleep(200);
    }
    close(fd);
    EXPECT_EQ(supervisor_.end(pid), 11);
}

} // namespace
} // namespace player
