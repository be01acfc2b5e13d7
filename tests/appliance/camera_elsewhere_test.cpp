// Cameras that send the gateway elsewhere, name files, and have names that a shell would run.
#include "tests/appliance/camera_gateway.h"
#include "tests/support/scripted_server.h"
#include "tests/support/trap.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace appliance {
namespace {

// The answer has the request's number and the length of the body.
scripted::Answer numbered(const std::string& text) {
    return [text](const std::string& request) {
        std::string answer = text;
        const std::size_t body = answer.find("\r\n\r\n") + 4;
        std::string added = "Content-Length: " + std::to_string(answer.size() - body) + "\r\n";
        if (const std::size_t at = request.find("CSeq:"); at != std::string::npos)
            added += request.substr(at, request.find("\r\n", at) + 2 - at);
        return answer.insert(answer.find("\r\n") + 2, added);
    };
}

// Answers each request in turn, and the last one for ever.
scripted::Script scriptOf(const std::vector<std::string>& answers, const Trap& trap) {
    scripted::Script script;
    for (const std::string& answer : answers) {
        script.push_back(scripted::readRequest());
        script.push_back(scripted::answer(numbered(baited(answer, trap))));
    }
    script.push_back(scripted::readRequest());
    script.push_back(scripted::stall());
    return script;
}

constexpr const char* sdp = "RTSP/1.0 200 OK\r\nContent-Base: rtsp://HOST:PORT/\r\n\r\n"
                            "v=0\r\no=- 1 1 IN IP4 HOST\r\ns=$(id)\r\nc=IN IP4 HOST\r\nt=0 0\r\n"
                            "a=control:rtsp://HOST:PORT/all\r\nm=video PORT RTP/AVP 96\r\nc=IN IP4 HOST\r\n"
                            "a=rtpmap:96 H264/90000\r\na=control:rtsp://HOST:PORT/track\r\n";
constexpr const char* played = "RTSP/1.0 200 OK\r\nSession: 4711\r\nLocation: rtsp://HOST:PORT/\r\n"
                               "RTP-Info: url=rtsp://HOST:PORT/track;seq=1;rtptime=1\r\n\r\n";

struct Trick {
    const char* name;
    const char* scheme;
    const char* transport; // "Transport" of the source
    std::vector<std::string> answers;
};

void PrintTo(const Trick& trick, std::ostream* out) {
    *out << trick.name;
}

class CameraElsewhere : public testing::TestWithParam<Trick> {
protected:
    Appliance decoder_;
    std::optional<CameraGateway> gateway_;
};

TEST_P(CameraElsewhere, IsNeverConnectedTo) {
    const Trap trap;
    ASSERT_TRUE(trap.isSet());
    const Trick& trick = GetParam();
    const scripted::Server camera(scriptOf(trick.answers, trap));
    const std::string mark = decoder_.root() + "/made-by-a-shell";
    const std::string command = "touch '" + mark + "'";
    Keys keys{{"URL", trick.scheme +
                          ("://127.0.0.1:" + std::to_string(camera.port()) + "/$(touch${IFS}made)`id`;id")}};
    if (*trick.transport != '\0')
        keys.emplace("Transport", trick.transport);
    decoder_.addSource("$(" + command + ")`" + command + "`';" + command + ";'", keys);
    gateway_.emplace(decoder_);
    decoder_.start();
    const auto reason = [&] { return decoder_.sourceValue(0, "Reason"); };
    EXPECT_TRUE(eventually([&] { return reason() != "" && reason() != "(none)"; })) << gateway_->log();
    EXPECT_TRUE(camera.waitForRequests(static_cast<int>(trick.answers.size()))) << gateway_->log();
    EXPECT_THAT(decoder_.ctl({"sources"}).output, testing::HasSubstr("$(touch"));
    EXPECT_FALSE(trap.caught()) << gateway_->log();
    EXPECT_FALSE(std::filesystem::exists(mark));
    EXPECT_TRUE(gateway_->process().running());
}

INSTANTIATE_TEST_SUITE_P(
    Tricks, CameraElsewhere,
    testing::Values(
        Trick{"RtspRedirection",
              "rtsp",
              "tcp",
              {"RTSP/1.0 302 Found\r\nLocation: rtsp://HOST:PORT/live\r\n\r\n"}},
        Trick{"DescriptionOfAnotherHost",
              "rtsp",
              "tcp",
              {sdp, "RTSP/1.0 200 OK\r\nSession: 4711\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n",
               played}},
        Trick{"TransportToAnotherHost",
              "rtsp",
              "udp",
              {sdp,
               "RTSP/1.0 200 OK\r\nSession: 4711\r\nTransport: RTP/AVP;unicast;client_port=20004-20005;"
               "destination=HOST;source=HOST;server_port=PORT-PORT\r\n\r\n",
               played}},
        Trick{"GroupThatIsAHost",
              "rtsp",
              "multicast",
              {sdp, "RTSP/1.0 200 OK\r\nSession: 4711\r\n"
                    "Transport: RTP/AVP;multicast;destination=HOST;port=PORT-PORT;ttl=1\r\n\r\n"}},
        Trick{"HttpRedirectionToAFile",
              "http",
              "",
              {"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\n\r\n"}},
        Trick{"HttpRefresh",
              "http",
              "",
              {"HTTP/1.1 200 OK\r\nRefresh: 0; url=http://HOST:PORT/\r\nContent-Type: text/html\r\n\r\n"
               "<meta http-equiv=refresh content='0; url=http://HOST:PORT/'>"}}),
    [](const auto& trick) { return std::string(trick.param.name); });

// What a camera makes the log say has a limit, however often it fails.
TEST(CameraLog, IsNotFilledByACameraThatAlwaysFails) {
    Appliance decoder;
    const scripted::Server camera(scripted::Script{scripted::readRequest(), scripted::close()});
    decoder.addSource("Yard", {{"URL", "rtsp://127.0.0.1:" + std::to_string(camera.port()) + "/live"}});
    const CameraGateway gateway(decoder);
    decoder.start();
    EXPECT_TRUE(eventually([&] { return camera.connections() >= 3; })) << gateway.log();
    pause(std::chrono::seconds(5));
    constexpr std::size_t enough = 32UL * 1024; // of both logs, for some ten seconds
    EXPECT_LT(gateway.log().size() + decoder.log().size(), enough) << gateway.log();
}

} // namespace
} // namespace appliance
