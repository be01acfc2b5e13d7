// SIGUSR1 at every wait of a detection: the detection ends at once and without a verdict, with any timeout.
#include "detect/network_detection_fixture.h"

#include <libcommon/libcommon.h>

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <ostream>
#include <unistd.h>

namespace detect_test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

constexpr int timeout = 60;
constexpr auto atOnce = 20s; // on a busy machine

// Does not answer, and sends the signal to the waiting detection.
std::string interrupt(const std::string& /*request*/) {
    kill(getpid(), SIGUSR1);
    return "";
}

class InterruptedDetection : public NetworkDetection {
protected:
    void expectInterrupted(const std::string& errorCode = "") const {
        EXPECT_LT(took_, atOnce) << trace();
        EXPECT_EQ(status(statusId, "ErrorCode"), errorCode);
        EXPECT_THAT(trace(), HasSubstr(" interrupted\n"));
    }
};

// ---- During the wait for an answer. ----

struct Wait {
    const char* name;
    const char* words;             // of the request that is not answered
    Encoder::Answers answers = {}; // to the others
    int configuredType = TYPE_AUTO;
    const char* errorCode = ""; // "0": it was accepted before
};

std::ostream& operator<<(std::ostream& out, const Wait& wait) {
    return out << wait.name;
}

class InterruptedRequest : public InterruptedDetection, public testing::WithParamInterface<Wait> {};

TEST_P(InterruptedRequest, EndsTheDetectionAtOnce) {
    UnicastEncoder encoder;
    Encoder::Answers answers = GetParam().answers;
    if (answers.empty())
        answers = encoder.answers();
    answers[GetParam().words] = interrupt;
    entry_.configuredType = GetParam().configuredType;
    EXPECT_FALSE(detect(Encoder(answers), timeout)) << trace();
    expectInterrupted(GetParam().errorCode);
    EXPECT_THAT(requests_.back(), HasSubstr(GetParam().words)) << "nothing was asked afterwards";
}

const auto refused = always(scripted::reply("401 Unauthorized", ""));
const auto unknown = always(scripted::reply("404 Not Found", ""));
const auto jpegOnly = always(scripted::reply("200 OK", "Properties.Image.Format=jpeg\n"));
const auto stream = always("HTTP/1.1 200 OK\r\n\r\n--boundary\r\n");

INSTANTIATE_TEST_SUITE_P(
    Waits, InterruptedRequest,
    testing::Values(Wait{"Version", "HTTP.Version"}, Wait{"Model", "Brand.ProdFullName"},
                    Wait{"ModelOfTheAdministrator", "admin/param.cgi", {{"view/param.cgi", refused}}},
                    Wait{"ModelOfTheOldAdministrator", "admin/getparam.cgi", {{"view/param.cgi", unknown}}},
                    Wait{"Sources", "NbrOfSources"}, Wait{"Rotation", "Image.Rotation"},
                    Wait{"RotationOfTheImage", "Image.I0.Appearance", {{"Image.Rotation", unknown}}},
                    Wait{"Formats", "Image.Format"}, Wait{"Describe", "DESCRIBE"},
                    Wait{"MulticastSetup", "SETUP"}, Wait{"Play", "PLAY"},
                    Wait{"UnicastSetup", "SETUP", {}, TYPE_RTSP_UNICAST},
                    Wait{"Teardown", "TEARDOWN", {}, TYPE_AUTO, "0"},
                    Wait{"RtspOverHttp", "GET /mpeg4/1/media.orv", {{"DESCRIBE", refused}}},
                    Wait{"Description", "guide.sdp", {{"Image.Format", jpegOnly}}},
                    Wait{"Mpeg2", "mpeg2/video.cgi", {{"Image.Format", jpegOnly}}},
                    Wait{"Mjpeg", "mjpg/video.cgi", {{"Image.Format", jpegOnly}}},
                    Wait{"Audio",
                         "audio/receive.cgi",
                         {{"Image.Format", jpegOnly}, {"mjpg/video.cgi", stream}},
                         TYPE_AUTO,
                         "0"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(InterruptedDetection, WhileTheDescriptionIsAskedForAgain) {
    int asked = 0;
    EXPECT_FALSE(detect(Encoder({{"DESCRIBE",
                                  [&asked](const std::string& request) {
                                      return ++asked == 1 ? "RTSP/1.0 401 Unauthorized\r\n\r\n"
                                                          : interrupt(request);
                                  }}}),
                        timeout));
    expectInterrupted();
    EXPECT_EQ(asked, 2);
}

// ---- In the middle of an answer. ----

TEST_F(InterruptedDetection, InTheBodyOfAParameter) {
    EXPECT_FALSE(detect(
        {{scripted::readRequest(), scripted::send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nProperties"),
          scripted::answer(interrupt), scripted::stall()}},
        timeout));
    expectInterrupted();
}

TEST_F(InterruptedDetection, InTheBodyOfTheDescription) {
    for (const int type : {TYPE_AUTO, TYPE_RTSP_UNICAST, TYPE_RTSP_TCP}) {
        entry_.configuredType = type;
        EXPECT_FALSE(
            detect({Encoder({}).script(),
                    {scripted::readRequest(), scripted::send(rtspReply("Content-Length: 100\r\n") + "v=0"),
                     scripted::answer(interrupt), scripted::stall()}},
                   timeout));
        expectInterrupted();
    }
}

// ---- During the wait for a connection. ----

// Sends the signal once `when` returns.
class Signaller {
public:
    explicit Signaller(std::function<bool()> when)
        : thread_([when = std::move(when)] {
              sigset_t all;
              sigfillset(&all);
              pthread_sigmask(SIG_SETMASK, &all, nullptr);
              EXPECT_TRUE(when());
              kill(getpid(), SIGUSR1);
          }) {}
    ~Signaller() { thread_.join(); }
    Signaller(const Signaller&) = delete;
    Signaller& operator=(const Signaller&) = delete;

private:
    std::thread thread_;
};

TEST_F(InterruptedDetection, WhileConnectingForTheParameters) {
    const scripted::FullBacklog port;
    const Signaller signaller([&port] { return port.waitForAttempt(); });
    EXPECT_FALSE(detect(port.port(), timeout));
    expectInterrupted();
}

TEST_F(InterruptedDetection, WhileConnectingForRtsp) {
    if (!ownNetwork().empty())
        GTEST_SKIP() << ownNetwork();
    const scripted::Server parameters(Encoder({}).script(), {.port = 80});
    const scripted::FullBacklog rtsp(554);
    for (const int type : {TYPE_AUTO, TYPE_RTSP_UNICAST, TYPE_RTSP_MULTICAST, TYPE_RTSP_TCP}) {
        entry_.configuredType = type;
        const Signaller signaller([&rtsp] { return rtsp.waitForAttempt(); });
        EXPECT_FALSE(detect("127.0.0.1", timeout));
        expectInterrupted();
    }
}

// ---- During the wait for packets. ----

// Waits until the UDP port is bound in this network.
bool waitUntilBound(int port) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (std::chrono::steady_clock::now() < limit) {
        std::ifstream table("/proc/net/udp");
        for (std::string line; std::getline(table, line);) {
            unsigned bound = 0;
            if (std::sscanf(line.c_str(), " %*d: %*[0-9A-F]:%x", &bound) == 1 &&
                bound == static_cast<unsigned>(port))
                return true;
        }
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

TEST_F(InterruptedDetection, WhileUnicastPacketsAreWaitedFor) {
    UnicastEncoder encoder;
    Encoder::Answers answers = encoder.answers(false);
    std::optional<Signaller> signaller;
    int port = 0;
    answers["SETUP"] = [&port, setup = answers["SETUP"]](const std::string& request) {
        const std::string wanted = "client_port=";
        if (const auto at = request.find(wanted); at != std::string::npos)
            port = std::atoi(request.c_str() + at + wanted.size());
        return setup(request);
    };
    answers["PLAY"] = [&](const std::string&) {
        signaller.emplace([&port] { return waitUntilBound(port + 1); });
        return rtspReply();
    };
    entry_.configuredType = TYPE_RTSP_UNICAST;
    EXPECT_FALSE(detect(Encoder(answers), timeout));
    expectInterrupted();
    EXPECT_THAT(trace(), HasSubstr("-> interrupted\n"));
}

TEST_F(InterruptedDetection, WhileMulticastPacketsAreWaitedFor) {
    if (!ownNetwork().empty())
        GTEST_SKIP() << ownNetwork();
    std::optional<Signaller> signaller;
    EXPECT_FALSE(detect(
        Encoder({{"DESCRIBE", always(rtspReply())},
                 {"SETUP", always(rtspReply("Session: 7\r\nTransport: "
                                            "RTP/AVP;multicast;destination=239.192.0.9;port=5000-5001\r\n"))},
                 {"PLAY",
                  [&signaller](const std::string&) {
                      signaller.emplace([] { return waitUntilBound(5001); });
                      return rtspReply();
                  }}}),
        timeout));
    expectInterrupted();
}

} // namespace
} // namespace detect_test
