// Encoders that send a player elsewhere: it talks to the one that it was started for, whatever that one says. The players
// keep their rights here, so that it is not the kernel that refuses.
#include "appliance/players/testing/player_test.h"
#include "tests/support/trap.h"

#include <vector>

namespace player {
namespace {

using scripted::Server;

struct Trick {
    const char* name;
    const char* transport; // "" for Motion JPEG over HTTP
    std::vector<const char*> answers;
};

void PrintTo(const Trick& trick, std::ostream* out) {
    *out << trick.name;
}

class Elsewhere : public PlayerTest, public testing::WithParamInterface<Trick> {
protected:
    static scripted::Script scriptOf(const Trick& trick, const Trap& trap) {
        scripted::Script script;
        for (const char* answer : trick.answers) {
            script.push_back(scripted::readRequest());
            script.push_back(scripted::answer([text = baited(answer, trap)](const std::string& request) {
                return numbered(text, request);
            }));
        }
        script.push_back(scripted::readRequest());
        script.push_back(scripted::stall());
        return script;
    }
    // With the request's number, and the length of the body.
    static std::string numbered(std::string text, const std::string& request) {
        const std::size_t at = request.find("CSeq:");
        const std::size_t line = text.find("\r\n") + 2;
        const std::size_t body = text.find("\r\n\r\n") + 4;
        std::string added = "Content-Length: " + std::to_string(text.size() - body) + "\r\n";
        if (at != std::string::npos)
            added += request.substr(at, request.find("\r\n", at) + 2 - at);
        return text.insert(line, added);
    }
    static std::vector<std::string> arguments(const Trick& trick, unsigned short port) {
        std::vector<std::string> all{"-m", "pal", "-o",   "tv", "-n",
                                     "4",  "-r",  "1500", "-P", std::to_string(port)};
        if (*trick.transport != '\0')
            all.insert(all.end(), {"-q", "20004", "-c", "1", "-M", trick.transport, "-H", "http"});
        all.emplace_back("127.0.0.1");
        return all;
    }
};

TEST_P(Elsewhere, IsNeverConnectedTo) {
    FakeSupervisor::setParameters("[Player]\nConfined = no\n");
    const Trap trap;
    ASSERT_TRUE(trap.isSet());
    const Trick& trick = GetParam();
    const Server encoder(scriptOf(trick, trap));
    const pid_t pid =
        supervisor_.start(*trick.transport == '\0' ? MJPEG_PLAYER : PLAYER, arguments(trick, encoder.port()));
    EXPECT_EQ(supervisor_.end(pid), 11) << FakeSupervisor::log();
    EXPECT_GE(encoder.requests().size(), trick.answers.size()) << "the trick was not reached";
    EXPECT_FALSE(trap.caught()) << FakeSupervisor::log();
}

constexpr const char* sdp = "RTSP/1.0 200 OK\r\nContent-Base: rtsp://HOST:PORT/\r\n\r\n"
                            "v=0\r\no=- 1 1 IN IP4 HOST\r\ns=$(id)\r\nc=IN IP4 HOST\r\nt=0 0\r\n"
                            "a=control:rtsp://HOST:PORT/all\r\nm=video PORT RTP/AVP 96\r\nc=IN IP4 HOST\r\n"
                            "a=rtpmap:96 H264/90000\r\na=control:rtsp://HOST:PORT/track\r\n";
constexpr const char* played = "RTSP/1.0 200 OK\r\nSession: 4711\r\nLocation: rtsp://HOST:PORT/\r\n"
                               "RTP-Info: url=rtsp://HOST:PORT/track;seq=1;rtptime=1\r\n\r\n";

INSTANTIATE_TEST_SUITE_P(
    Tricks, Elsewhere,
    testing::Values(
        Trick{
            "RtspRedirection", "rtsp-tcp", {"RTSP/1.0 302 Found\r\nLocation: rtsp://HOST:PORT/live\r\n\r\n"}},
        Trick{"RtspMovedForEver",
              "rtsp-unicast",
              {"RTSP/1.0 301 Moved\r\nLocation: rtsp://HOST:PORT/live\r\n\r\n"}},
        Trick{"UseProxy", "rtsp-tcp", {"RTSP/1.0 305 Use Proxy\r\nLocation: rtsp://HOST:PORT\r\n\r\n"}},
        Trick{"DescriptionOfAnotherHost",
              "rtsp-tcp",
              {sdp, "RTSP/1.0 200 OK\r\nSession: 4711\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n",
               played}},
        Trick{"TransportToAnotherHost",
              "rtsp-unicast",
              {sdp,
               "RTSP/1.0 200 OK\r\nSession: 4711\r\nTransport: RTP/AVP;unicast;client_port=20004-20005;"
               "destination=HOST;source=HOST;server_port=PORT-PORT\r\n\r\n",
               played}},
        Trick{"GroupThatIsAHost",
              "rtsp-multicast",
              {sdp, "RTSP/1.0 200 OK\r\nSession: 4711\r\n"
                    "Transport: RTP/AVP;multicast;destination=HOST;port=PORT-PORT;ttl=1\r\n\r\n"}},
        Trick{"RequestOfTheServer",
              "rtsp-tcp",
              {sdp, "RTSP/1.0 200 OK\r\nSession: 4711\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n",
               "RTSP/1.0 200 OK\r\nSession: 4711\r\n\r\nREDIRECT rtsp://HOST:PORT/ RTSP/1.0\r\nCSeq: 9\r\n"
               "Location: rtsp://HOST:PORT/\r\n\r\n"}},
        Trick{"HttpRedirection", "", {"HTTP/1.1 302 Found\r\nLocation: http://HOST:PORT/\r\n\r\n"}},
        Trick{"HttpRefresh",
              "",
              {"HTTP/1.1 200 OK\r\nRefresh: 0; url=http://HOST:PORT/\r\nContent-Type: text/html\r\n\r\n"
               "<meta http-equiv=refresh content='0; url=http://HOST:PORT/'>"}},
        Trick{"HttpAlternative",
              "",
              {"HTTP/1.1 200 OK\r\nAlt-Svc: h2=\"HOST:PORT\"\r\nContent-Location: http://HOST:PORT/\r\n"
               "Content-Type: multipart/x-mixed-replace; boundary=next\r\n\r\n--next\r\n"
               "Content-Type: message/external-body; access-type=URL; "
               "URL=\"http://HOST:PORT/\"\r\n\r\n--next\r\n"}},
        Trick{"HttpProxy", "", {"HTTP/1.1 305 Use Proxy\r\nLocation: http://HOST:PORT/\r\n\r\n"}},
        Trick{"FileRedirection", "", {"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\n\r\n"}}),
    [](const auto& trick) { return std::string(trick.param.name); });

struct Flood {
    const char* name;
    const char* transport;
    std::vector<std::string> answers;
    std::string endless;
};

void PrintTo(const Flood& flood, std::ostream* out) {
    *out << flood.name;
}

class LogOfAPlayer : public PlayerTest, public testing::WithParamInterface<Flood> {};

// Broken pictures and packets come as fast as the encoder can send them.
TEST_P(LogOfAPlayer, IsNotFilledByItsEncoder) {
    const Flood& flood = GetParam();
    scripted::Script script;
    for (const std::string& answer : flood.answers) {
        script.push_back(scripted::readRequest());
        script.push_back(scripted::send(answer));
    }
    script.push_back(scripted::sendEndlessly(flood.endless));
    const Server encoder(script);
    const std::size_t before = FakeSupervisor::log().size();
    std::vector<std::string> arguments{"-m", "pal", "-o",   "tv", "-n",
                                       "4",  "-r",  "3000", "-P", std::to_string(encoder.port())};
    if (*flood.transport != '\0')
        arguments.insert(arguments.end(), {"-c", "1", "-M", flood.transport, "-H", "http"});
    arguments.emplace_back("127.0.0.1");
    testing::internal::CaptureStderr(); // of the player, too
    const pid_t pid = supervisor_.start(*flood.transport == '\0' ? MJPEG_PLAYER : PLAYER, arguments);
    const std::optional<int> status = supervisor_.end(pid);
    const std::size_t said = testing::internal::GetCapturedStderr().size();
    EXPECT_EQ(status, 11) << FakeSupervisor::log();
    constexpr std::size_t enough = 16UL * 1024; // for three seconds, as long as nothing can be shown
    EXPECT_LT(FakeSupervisor::log().size() - before + said, enough);
}

// An interleaved packet of RTP with these bytes.
std::string packet(const std::string& payload) {
    const std::string rtp = std::string("\x80\xe0\0\1\0\0\0\1\0\0\0\1", 12) + payload;
    return std::string("$\0\0", 3) + static_cast<char>(rtp.size()) + rtp;
}

std::vector<std::string> untilPlay(const char* codec) {
    const std::string body =
        std::string("v=0\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 ") + codec + "\r\n";
    return {"RTSP/1.0 200 OK\r\nCSeq: 1\r\nContent-Type: application/sdp\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body,
            "RTSP/1.0 200 OK\r\nCSeq: 2\r\nSession: 4711\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n",
            "RTSP/1.0 200 OK\r\nCSeq: 3\r\nSession: 4711\r\n\r\n"};
}

INSTANTIATE_TEST_SUITE_P(
    Floods, LogOfAPlayer,
    testing::Values(
        Flood{"BrokenJpeg",
              "",
              {"HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=next\r\n\r\n--next\r\n"},
              "Content-Type: image/jpeg\r\n\r\n\xff\xd8\xff\xda broken \xff\xd9\r\n--next\r\n"},
        Flood{"BrokenH264", "rtsp-tcp", untilPlay("H264/90000"), packet("\x65 broken")},
        Flood{"BrokenH265", "rtsp-tcp", untilPlay("H265/90000"), packet("\x26\x01 broken")},
        Flood{"BrokenMpeg4", "rtsp-tcp", untilPlay("MP4V-ES/90000"),
              packet(std::string("\0\0\1\xb6 broken", 11))},
        Flood{"BrokenPackets", "rtsp-tcp", untilPlay("H264/90000"), packet("\x7c")}),
    [](const auto& flood) { return std::string(flood.param.name); });

} // namespace
} // namespace player
