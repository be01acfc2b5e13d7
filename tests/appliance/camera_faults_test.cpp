// Cameras that do not play: what a person sees as the reason, and that the gateway comes through all of it.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Encoder;
using appliance::eventually;
using appliance::Oddity;
using player::TestRtspServer;
using testing::HasSubstr;
using testing::Not;

constexpr int cameraMark = 9; // of TestRtspServer's pictures
constexpr const char* secret = "s3cretWord";

int connectTo(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

// Relays a connection to a server and replaces the client's UDP ports by closed ones, like a firewall that lets only TCP
// through.
void relayWithoutUdp(int client, int port) {
    const int server = connectTo(port);
    char bytes[8192];
    for (;;) {
        pollfd ready[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
        if (server < 0 || poll(ready, 2, 60'000) <= 0)
            return;
        for (int from = 0; from < 2; ++from) {
            if (ready[from].revents == 0)
                continue;
            const ssize_t count = recv(ready[from].fd, bytes, sizeof bytes, 0);
            if (count <= 0)
                return;
            std::string text(bytes, static_cast<std::size_t>(count));
            const std::string wanted = "client_port=";
            if (const std::size_t at = text.find(wanted); from == 0 && at != std::string::npos)
                text.replace(at, text.find("\r\n", at) - at, wanted + "9-10");
            if (!appliance::writeAll(ready[1 - from].fd, text))
                return;
        }
    }
}

class CameraFaults : public testing::Test {
protected:
    // The reason why a camera with this URL does not play, as the gateway reports it for its source.
    std::string reasonFor(const std::string& url, const appliance::Keys& more = {}) {
        appliance::Keys keys{{"URL", url}};
        keys.insert(more.begin(), more.end());
        decoder_.addSource("Yard", keys);
        gateway_ = std::make_unique<CameraGateway>(decoder_);
        decoder_.start();
        eventually([&] { return reason() != "" && reason() != "(none)"; });
        return reason();
    }
    std::string reason() const { return decoder_.sourceValue(0, "Reason"); }
    static std::string rtsp(const std::string& place, const std::string& path = "/live") {
        return "rtsp://" + place + path;
    }
    static std::string placeOf(const TestRtspServer& camera) {
        return "127.0.0.1:" + std::to_string(camera.port());
    }

    Appliance decoder_;
    std::unique_ptr<CameraGateway> gateway_;
};

TEST_F(CameraFaults, WrongPasswordIsToldApartFromNone) {
    for (const bool digest : {false, true}) {
        Appliance other;
        const TestRtspServer camera({.basic = !digest, .digest = digest, .path = "/live"});
        other.addSource("Wrong",
                        {{"URL", rtsp(placeOf(camera))}, {"UserName", "viewer"}, {"Password", secret}});
        other.addSource("None", {{"URL", rtsp(placeOf(camera))}});
        const CameraGateway gateway(other);
        other.start();
        EXPECT_TRUE(
            eventually([&] { return other.sourceValue(1, "Reason").find("asks for") != std::string::npos; }));
        EXPECT_THAT(other.sourceValue(0, "Reason"), HasSubstr("refuses the user name or password"));
        EXPECT_THAT(other.ctl({"sources"}).output, HasSubstr("refuses the user name or password"));
        EXPECT_THAT(other.ctl({"explain", "0"}).output, HasSubstr("refuses the user name or password"));
    }
}

TEST_F(CameraFaults, WrongPath) {
    const TestRtspServer camera({.path = "/live"});
    EXPECT_THAT(reasonFor(rtsp(placeOf(camera), "/other")), HasSubstr("has no stream at this path"));
}

TEST_F(CameraFaults, Refusal) {
    EXPECT_EQ(reasonFor("rtsp://127.0.0.1:1/live"), "127.0.0.1:1 refuses connections");
}

TEST_F(CameraFaults, Silence) {
    const Oddity camera([](int fd) {
        char byte = 0;
        while (read(fd, &byte, 1) > 0) {
        }
    });
    EXPECT_THAT(reasonFor(rtsp(camera.address())), HasSubstr("does not answer DESCRIBE"));
}

TEST_F(CameraFaults, GarbageAndEndlessHeaders) {
    const Oddity garbage(
        [](int fd) { appliance::writeAll(fd, "\x01\x02 nonsense\r\n\r\n" + std::string(40'000, 'x')); });
    const Oddity endless([](int fd) {
        appliance::writeAll(fd, "RTSP/1.0 200 OK\r\n");
        while (appliance::writeAll(fd, "X-More: of the same\r\n")) {
        }
    });
    const Oddity endlessHttp([](int fd) {
        appliance::writeAll(fd, "HTTP/1.1 200 OK\r\n");
        while (appliance::writeAll(fd, "X-More: of the same\r\n")) {
        }
    });
    const Oddity page([](int fd) {
        appliance::readRequest(fd);
        appliance::writeAll(fd, "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 2\r\n\r\nHi");
    });
    decoder_.addSource("Garbage", {{"URL", rtsp(garbage.address())}});
    decoder_.addSource("Endless", {{"URL", rtsp(endless.address())}});
    decoder_.addSource("Endless HTTP", {{"URL", "http://" + endlessHttp.address() + "/"}});
    decoder_.addSource("Page", {{"URL", "http://" + page.address() + "/"}});
    gateway_ = std::make_unique<CameraGateway>(decoder_);
    decoder_.start();
    const auto shows = [&](int index, const char* text) {
        return eventually(
            [&] { return decoder_.sourceValue(index, "Reason").find(text) != std::string::npos; },
            appliance::Seconds(120));
    };
    EXPECT_TRUE(shows(0, "does not speak RTSP")) << decoder_.sourceValue(0, "Reason");
    EXPECT_TRUE(shows(1, "does not speak RTSP")) << decoder_.sourceValue(1, "Reason");
    EXPECT_TRUE(shows(2, "sends a header without an end")) << decoder_.sourceValue(2, "Reason");
    EXPECT_TRUE(shows(3, "sends \"text/html\", not a Motion JPEG stream"))
        << decoder_.sourceValue(3, "Reason");
    EXPECT_TRUE(gateway_->process().running());
}

TEST_F(CameraFaults, ACodecThatNobodyCanShow) {
    const TestRtspServer camera(
        {.encoding = "theoraenc speed-level=3 ! rtptheorapay name=pay0 pt=96", .path = "/live"});
    EXPECT_EQ(reasonFor(rtsp(placeOf(camera))), "codec THEORA can't be shown");
}

TEST_F(CameraFaults, ABadUrl) {
    EXPECT_THAT(reasonFor("gopher://camera/x"), HasSubstr("begins with none of"));
}

TEST_F(CameraFaults, WithoutUdpItPlaysOverTcp) {
    const TestRtspServer camera({.path = "/live"});
    const int port = camera.port();
    const Oddity firewall([port](int fd) { relayWithoutUdp(fd, port); });
    decoder_.addSource("Yard", {{"URL", rtsp(firewall.address())}});
    gateway_ = std::make_unique<CameraGateway>(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(cameraMark)) << gateway_->log();
    EXPECT_THAT(gateway_->log(), HasSubstr("sends nothing over UDP; trying TCP"));
}

TEST_F(CameraFaults, APlayerStaysWhileTheCameraRestarts) {
    constexpr int mark = 77;
    Encoder camera("Camera", mark,
                   {"--kinds", "rtsp-tcp", "--codec", "h264", "--width", "352", "--height", "288"},
                   decoder_.root() + "/camera.log");
    decoder_.setManual();
    decoder_.addSource("Yard", {{"URL", rtsp(camera.address(), "/mpeg4/1/media.orv")}});
    gateway_ = std::make_unique<CameraGateway>(decoder_);
    decoder_.start();
    ASSERT_TRUE(decoder_.showsMoving(mark)) << gateway_->log();
    const int player = decoder_.playerPid();
    camera.kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500)); // the first new attempt fails
    camera.again();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway_->log();
    EXPECT_EQ(decoder_.playerPid(), player);
    EXPECT_TRUE(eventually([&] { return reason() == ""; }));
}

TEST_F(CameraFaults, ThePasswordIsNowhere) {
    const TestRtspServer camera({.digest = true, .path = "/live"});
    decoder_.addSource("Yard",
                       {{"URL", rtsp(placeOf(camera))}, {"UserName", "viewer"}, {"Password", secret}});
    decoder_.addSource("Url",
                       {{"URL", "rtsp://viewer:" + std::string(secret) + "@" + placeOf(camera) + "/live"}});
    gateway_ = std::make_unique<CameraGateway>(decoder_);
    decoder_.start();
    EXPECT_TRUE(eventually([&] { return reason() != "" && reason() != "(none)"; }));
    std::string seen = gateway_->log() + decoder_.log() + decoder_.ctl({"sources", "--json"}).output +
                       decoder_.ctl({"explain", "0"}).output + decoder_.ctl({"source", "1"}).output;
    for (const char* folder : {"/run/decoder", "/var/log"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(decoder_.root() + folder)) {
            if (entry.is_regular_file() && entry.path().filename() != "frames")
                seen += appliance::readFile(entry.path());
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc"))
        seen += appliance::readFile(entry.path().string() + "/cmdline");
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
    EXPECT_THAT(seen, HasSubstr("127.0.0.1"));
}

} // namespace
