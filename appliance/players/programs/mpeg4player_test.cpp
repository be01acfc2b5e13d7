// mpeg4player as the supervisor runs it: with GStreamer's RTSP server and with hostile ones.
#include "appliance/players/testing/player_test.h"
#include "appliance/players/testing/test_rtsp_server.h"
#include "appliance/players/testing/test_stream.h"

#include "appliance/sound/sound_control.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <unistd.h>
#include <vector>

namespace player {
namespace {

using scripted::Server;
using testing::HasSubstr;

std::size_t residentBytes(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

class Mpeg4Player : public PlayerTest {
protected:
    pid_t start(unsigned short port, const std::string& type, std::vector<std::string> more = {},
                int patienceMs = 10'000) {
        std::vector<std::string> arguments{"-m",
                                           "pal",
                                           "-o",
                                           "tv",
                                           "-n",
                                           "4",
                                           "-v",
                                           "-r",
                                           std::to_string(patienceMs),
                                           "-P",
                                           std::to_string(port)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.insert(arguments.end(),
                         {"-c", "1", "-M", type, "-H", credentials_ ? "http-auth" : "http", "127.0.0.1"});
        return supervisor_.start(PLAYER, arguments);
    }
    // The exit status of a player that talks to this script. It must come soon after the time limit.
    std::optional<int> statusAgainst(scripted::Script script, int patienceMs = 500) {
        const Server server(std::move(script));
        const std::int64_t begin = gettimeusec();
        const std::optional<int> status = supervisor_.end(start(server.port(), "rtsp-tcp", {}, patienceMs));
        EXPECT_LT(gettimeusec() - begin, 15'000'000);
        return status;
    }
    void showsAndTearsDown(const TestRtspServer& server, const std::string& type,
                           std::vector<std::string> more = {}) {
        showsAndLeaves(start(server.port(), type, std::move(more)), 9);
        EXPECT_EQ(store_.newestInfo().source, 4);
        const std::int64_t until = gettimeusec() + 10'000'000;
        while (server.sessions() > 0 && gettimeusec() < until)
            usleep(1000);
        EXPECT_EQ(server.sessions(), 0) << "no TEARDOWN";
    }

    bool credentials_ = false;
};

TEST_F(Mpeg4Player, ShowsUnicast) {
    const TestRtspServer server({});
    showsAndTearsDown(server, "rtsp-unicast", {"-q", "20004"});
    EXPECT_EQ(server.transports(), "udp ");
}

TEST_F(Mpeg4Player, ShowsUnicastOnAnyPorts) {
    const TestRtspServer server({});
    showsAndTearsDown(server, "rtsp-unicast", {"-q", "65535"});
}

TEST_F(Mpeg4Player, ShowsTcp) {
    const TestRtspServer server({});
    showsAndTearsDown(server, "rtsp-tcp", {"-q", "65535"});
    EXPECT_EQ(server.transports(), "tcp ");
}

TEST_F(Mpeg4Player, ShowsHttp) {
    const TestRtspServer server({});
    showsAndTearsDown(server, "rtsp-http", {"-q", "65535"});
    EXPECT_EQ(server.transports(), "tcp ");
}

const std::string description = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\n"
                                "a=rtpmap:96 H264/90000\r\na=control:trackID=1\r\n";

scripted::Step rtspAnswer(int number, const std::string& headers, const std::string& body = "") {
    return scripted::send("RTSP/1.0 200 OK\r\nCSeq: " + std::to_string(number) + "\r\n" + headers +
                          "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

// GStreamer's server does not loop its multicast back to its own machine, so the test sends to the group itself.
TEST_F(Mpeg4Player, ShowsMulticast) {
    if (!network_.empty())
        GTEST_SKIP() << network_;
    const Server server(
        {scripted::readRequest(), rtspAnswer(1, "", description), scripted::readRequest(),
         rtspAnswer(2, "Session: 4711;timeout=2\r\n"
                       "Transport: RTP/AVP;multicast;destination=239.7.7.7;ttl=1;port=5000-5001\r\n"),
         scripted::readRequest(), rtspAnswer(3, "Session: 4711\r\n"), scripted::readRequest(),
         rtspAnswer(4, ""), scripted::readRequest(), rtspAnswer(5, ""), scripted::stall()});
    const TestStream stream(
        9, "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=10 ! rtph264pay pt=96 "
           "config-interval=1 ! udpsink auto-multicast=false loop=true host=239.7.7.7 port=5000");
    ASSERT_TRUE(stream.good());
    const pid_t pid = start(server.port(), "rtsp-multicast", {"-q", "65535"});
    ASSERT_TRUE(server.waitForRequests(4)) << "no keep-alive within half of the session's timeout";
    showsAndLeaves(pid, 9);
    const auto requests = server.requests();
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(server.port()) + "/mpeg4/1/media.orv";
    EXPECT_THAT(requests.at(0), testing::StartsWith("DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\n"));
    EXPECT_THAT(requests.at(1), testing::StartsWith("SETUP " + url + "/trackID=1 RTSP/1.0\r\nCSeq: 2\r\n"));
    EXPECT_THAT(requests.at(1), HasSubstr("Transport: RTP/AVP;multicast\r\n"));
    EXPECT_THAT(requests.at(2), testing::StartsWith("PLAY " + url + " RTSP/1.0\r\nCSeq: 3\r\n"));
    EXPECT_THAT(requests.at(2), HasSubstr("Session: 4711\r\n"));
    EXPECT_THAT(requests.at(2), testing::Not(HasSubstr("Range")));
    EXPECT_THAT(requests.at(3), testing::StartsWith("GET_PARAMETER " + url));
    EXPECT_THAT(requests.back(), testing::StartsWith("TEARDOWN " + url));
}

TEST_F(Mpeg4Player, RequestsNoOtherTransportThanTheGivenOne) {
    const std::pair<const char*, const char*> transports[] = {
        {"rtsp-tcp", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"},
        {"rtsp-multicast", "Transport: RTP/AVP;multicast\r\n"},
        {"rtsp-unicast", "Transport: RTP/AVP;unicast;client_port=20004-20005\r\n"}};
    for (const auto& [type, line] : transports) {
        const Server server({scripted::readRequest(), rtspAnswer(1, "", description), scripted::readRequest(),
                             scripted::send("RTSP/1.0 461 Unsupported Transport\r\nCSeq: 2\r\n\r\n"),
                             scripted::stall()});
        EXPECT_EQ(supervisor_.end(start(server.port(), type, {"-q", "20004"})), 11);
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), 2U) << type;
        EXPECT_EQ(server.connections(), 1) << type;
        EXPECT_THAT(requests.at(1), HasSubstr(line));
    }
}

TEST_F(Mpeg4Player, CredentialsAnswerBasicAndDigest) {
    credentials_ = true;
    for (const bool digest : {false, true}) {
        RtspServerOptions options;
        options.basic = !digest;
        options.digest = digest;
        const TestRtspServer server(options);
        for (const char* type : {"rtsp-unicast", "rtsp-tcp", "rtsp-http"}) {
            const pid_t pid = start(server.port(), type, {"-u", "viewer", "-p", "secret"});
            EXPECT_TRUE(supervisor_.arrived(pid, 0)) << type << FakeSupervisor::log();
            kill(pid, SIGTERM);
            EXPECT_EQ(supervisor_.end(pid), 0);
            EXPECT_EQ(supervisor_.end(start(server.port(), type, {"-u", "viewer", "-p", "wrong"})), 11)
                << type;
        }
    }
    EXPECT_THAT(FakeSupervisor::log(), testing::Not(HasSubstr("secret")));
}

TEST_F(Mpeg4Player, ShowsOtherEncodings) {
    for (const char* encoding : {"avenc_mpeg4 bitrate=1500000 gop-size=10 ! identity name=stamp ! rtpmp4vpay "
                                 "name=pay0 config-interval=1",
                                 "jpegenc ! rtpjpegpay name=pay0"}) {
        RtspServerOptions options;
        options.encoding = encoding;
        const TestRtspServer server(options);
        showsAndTearsDown(server, "rtsp-tcp");
        showsAndTearsDown(server, "rtsp-unicast");
    }
}

TEST_F(Mpeg4Player, SoundDoesNotDisturbThePicture) {
    RtspServerOptions options;
    options.sound = "audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay name=pay1";
    const TestRtspServer server(options);
    showsAndTearsDown(server, "rtsp-unicast", {"-q", "20004"});
    EXPECT_EQ(server.transports(), "udp udp ") << "both streams are set up";
    showsAndTearsDown(server, "rtsp-tcp");
}

// The samples that the players wrote to their device, of the left channel.
std::vector<std::int16_t> heardIn(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<std::int16_t> left(bytes.size() / 4);
    for (std::size_t i = 0; i < left.size(); ++i)
        std::memcpy(&left[i], &bytes[4 * i], sizeof left[i]);
    return left;
}

int loudest(const std::vector<std::int16_t>& samples, std::size_t last) {
    int highest = 0;
    for (std::size_t at = samples.size() - std::min(samples.size(), last); at < samples.size(); ++at)
        highest = std::max(highest, std::abs(int{samples[at]}));
    return highest;
}

// Waits until the newest tenth of a second is louder than half of the tone, or silent.
bool becomes(bool loud, const std::string& path) {
    const std::int64_t until = gettimeusec() + 30'000'000;
    bool is = !loud;
    while (is != loud && gettimeusec() < until) {
        usleep(20'000);
        const int highest = loudest(heardIn(path), 4800);
        is = loud ? highest > 10'000 : highest > 0;
    }
    return is == loud;
}

TEST_F(Mpeg4Player, SoundMovesToTheNextPlayerWithoutAJump) {
    const std::string device = FakeSupervisor::root() + "/samples";
    FakeSupervisor::setParameters("[Sound]\nDevice = file:" + device + "\n");
    RtspServerOptions options;
    options.sound = "audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay name=pay1";
    const TestRtspServer one(options);
    const TestRtspServer two(options);
    const pid_t first = start(one.port(), "rtsp-tcp");
    ASSERT_TRUE(supervisor_.letShow(first));
    EXPECT_TRUE(becomes(true, device)) << FakeSupervisor::log();
    const pid_t second = start(two.port(), "rtsp-tcp");
    ASSERT_TRUE(supervisor_.arrived(second, 0));
    supervisor_.release(0, {second});
    kill(first, SIGHUP);
    ASSERT_TRUE(supervisor_.arrived(first, 1, 2));
    ASSERT_TRUE(supervisor_.arrived(second, 1));
    supervisor_.release(1, {second, first});
    EXPECT_EQ(supervisor_.end(first), 0);
    const std::size_t ofFirst = heardIn(device).size();
    const std::int64_t until = gettimeusec() + 30'000'000;
    while (heardIn(device).size() < ofFirst + 24'000 && gettimeusec() < until)
        usleep(20'000);
    EXPECT_TRUE(becomes(true, device));
    kill(second, SIGTERM);
    EXPECT_EQ(supervisor_.end(second), 0);
    const std::vector<std::int16_t> heard = heardIn(device);
    int step = std::abs(int{heard.back()});
    for (std::size_t i = 1; i < heard.size(); ++i)
        step = std::max(step, std::abs(heard[i] - heard[i - 1]));
    std::printf("%zu samples, largest change from one to the next: %d\n", heard.size(), step);
    // The tone of 440 Hz changes by 1510 at most, and a little more where its encoding rounds. A jump from a peak to
    // silence is 26 000.
    EXPECT_LT(step, 3500);
    FakeSupervisor::setParameters("");
}

TEST_F(Mpeg4Player, SoundIsMutedInARunningPlayer) {
    const std::string device = FakeSupervisor::root() + "/samples-muted";
    FakeSupervisor::setParameters("[Sound]\nDevice = file:" + device + "\n");
    RtspServerOptions options;
    options.sound = "audio/x-raw,rate=8000,channels=1 ! mulawenc ! rtppcmupay name=pay1";
    const TestRtspServer server(options);
    const pid_t pid = start(server.port(), "rtsp-tcp");
    ASSERT_TRUE(supervisor_.letShow(pid));
    EXPECT_TRUE(becomes(true, device)) << FakeSupervisor::log();
    ASSERT_TRUE(sound::setMuted(true));
    EXPECT_TRUE(becomes(false, device));
    ASSERT_TRUE(sound::setMuted(false));
    EXPECT_TRUE(becomes(true, device));
    kill(pid, SIGTERM);
    EXPECT_EQ(supervisor_.end(pid), 0);
    FakeSupervisor::setParameters("");
}

TEST_F(Mpeg4Player, EndOfTheStreamIsFourteen) {
    for (const char* type : {"rtsp-unicast", "rtsp-tcp"}) {
        TestRtspServer server({});
        const pid_t pid = start(server.port(), type);
        ASSERT_TRUE(supervisor_.letShow(pid));
        EXPECT_TRUE(moves(9));
        server.endStreams();
        EXPECT_EQ(supervisor_.end(pid), 14) << type;
    }
}

TEST_F(Mpeg4Player, EncoderThatStopsIsFourteen) {
    for (const char* type : {"rtsp-unicast", "rtsp-tcp", "rtsp-http"}) {
        auto server = std::make_unique<TestRtspServer>(RtspServerOptions{});
        const pid_t pid = start(server->port(), type);
        ASSERT_TRUE(supervisor_.letShow(pid));
        EXPECT_TRUE(moves(9));
        server.reset();
        EXPECT_EQ(supervisor_.end(pid), 14) << type;
    }
}

TEST_F(Mpeg4Player, QuadViewHasItsOwnPath) {
    const Server server({scripted::readRequest(), scripted::close()});
    const pid_t pid = supervisor_.start(
        PLAYER, {"-P", std::to_string(server.port()), "-c", "0", "-M", "rtsp-tcp", "127.0.0.1"});
    EXPECT_EQ(supervisor_.end(pid), 11);
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_THAT(server.requests()[0],
                testing::StartsWith("DESCRIBE rtsp://127.0.0.1:" + std::to_string(server.port()) +
                                    "/mpeg4/quad/media.orv RTSP/1.0\r\nCSeq: 1\r\n"));
}

TEST_F(Mpeg4Player, UnknownMountIsEleven) {
    RtspServerOptions options;
    options.path = "/mpeg4/2/media.orv";
    const TestRtspServer server(options);
    EXPECT_EQ(supervisor_.end(start(server.port(), "rtsp-tcp")), 11);
}

TEST_F(Mpeg4Player, EndsAtOnceWhenAsked) {
    const Server silent({scripted::stall()});
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const pid_t pid = start(silent.port(), "rtsp-tcp");
        ASSERT_TRUE(silent.waitForRequests(0));
        usleep(1000);
        kill(pid, number);
        const std::optional<int> status = supervisor_.end(pid);
        // The signal may arrive before the player reads signals; then it kills the player.
        EXPECT_TRUE(status == 0 || status == -number) << *status;
    }
}

TEST_F(Mpeg4Player, HostileAnswersAreElevenInTime) {
    const scripted::RefusedPort refused;
    EXPECT_EQ(supervisor_.end(start(refused.port(), "rtsp-tcp")), 11);
    const scripted::Step ask = scripted::readRequest();
    EXPECT_EQ(statusAgainst({ask, scripted::stall()}), 11);
    EXPECT_EQ(statusAgainst({ask, scripted::close()}), 11);
    EXPECT_EQ(statusAgainst({ask, scripted::sendEndlessly("X: no end\r\n")}), 11);
    EXPECT_EQ(statusAgainst({ask, scripted::sendEndlessly("one line without an end ")}), 11);
    EXPECT_EQ(
        statusAgainst({ask, scripted::sendSlowly("RTSP/1.0 200 OK\r\nCSeq: 1\r\nX: " + std::string(1000, 'x'),
                                                 std::chrono::milliseconds(30))}),
        11);
    EXPECT_EQ(
        statusAgainst({ask, scripted::send("RTSP/1.0 200 OK\r\n"), scripted::sendEndlessly("X: no end\r\n")}),
        11);
    EXPECT_EQ(statusAgainst(
                  {ask, scripted::send("RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: 1000000000\r\n\r\n"),
                   scripted::sendEndlessly("v=0\r\n")}),
              11);
    EXPECT_EQ(statusAgainst({ask, scripted::sendEndlessly(std::string("\0\xff$\x07", 4))}), 11);
    EXPECT_EQ(statusAgainst({ask, scripted::sendEndlessly(std::string("$\0\0\4abcd", 8))}), 11);
    EXPECT_EQ(statusAgainst({ask, scripted::send("RTSP/1.0 200 OK\r\nCSeq: 99\r\n\r\n"), scripted::stall()}),
              11);
    EXPECT_EQ(statusAgainst({ask, scripted::send("RTSP/1.0 401 No\r\nCSeq: 1\r\n\r\n"), scripted::stall()}),
              11);
    EXPECT_EQ(statusAgainst({ask, rtspAnswer(1, "", ""), scripted::stall()}), 11);
    EXPECT_EQ(statusAgainst({ask, rtspAnswer(1, "", "not a description"), scripted::stall()}), 11);
    EXPECT_EQ(
        statusAgainst({ask, rtspAnswer(1, "", "v=0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 SECRET/1\r\n"),
                       scripted::stall()}),
        11);
    EXPECT_EQ(statusAgainst({ask, rtspAnswer(1, "", description), ask, scripted::close()}), 11);
}

TEST_F(Mpeg4Player, EndlessAnswersTakeNoMemory) {
    for (const std::string& begin :
         {std::string("RTSP/1.0 200 OK\r\nX: "), std::string("RTSP/1.0 200 OK\r\nX: y\r\n"),
          std::string("RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Length: 1000000000\r\n\r\n")}) {
        const std::string line =
            begin.ends_with(": ") ? std::string(65536, 'y') : "X: " + std::string(60, 'y') + "\r\n";
        const Server server({scripted::readRequest(), scripted::send(begin), scripted::sendEndlessly(line)});
        const pid_t pid = start(server.port(), "rtsp-tcp", {}, 1500);
        std::size_t most = 0;
        while (supervisor_.running(pid)) {
            most = std::max(most, residentBytes(pid));
            usleep(10'000);
        }
        EXPECT_EQ(supervisor_.end(pid), 11);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_LT(most, 150U << 20);
#endif
    }
}

TEST_F(Mpeg4Player, PacketsOfNonsenseAreNoPicture) {
    std::string packet("\x80\x60\0\1\0\0\0\0\0\0\0\1", 12);
    packet += std::string(200, '\x5a');
    const std::string framed = std::string("$\0\0", 3) + static_cast<char>(packet.size()) + packet;
    EXPECT_EQ(
        statusAgainst({scripted::readRequest(), rtspAnswer(1, "", description), scripted::readRequest(),
                       rtspAnswer(2, "Session: 12\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"),
                       scripted::readRequest(), rtspAnswer(3, "Session: 12\r\n"),
                       scripted::sendEndlessly(framed)},
                      1500),
        11);
}

} // namespace
} // namespace player
