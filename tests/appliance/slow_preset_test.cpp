// A camera answers a preset slowly. The player that waits for its release in the meantime is not lost.
#include "tests/appliance/appliance.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::Oddity;

int connectToPort(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

std::string received(int fd) {
    std::array<char, 65536> bytes{};
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

// Passes a connection on to an encoder. Requests for presets are refused, just before the supervisor stops
// waiting for the answer.
void refusePresetsSlowly(int client, int encoderPort) {
    const int encoder = connectToPort(encoderPort);
    std::array<pollfd, 2> sides{{{client, POLLIN, 0}, {encoder, POLLIN, 0}}};
    while (encoder >= 0) {
        poll(sides.data(), sides.size(), -1);
        if (sides[0].revents != 0) {
            const std::string request = received(client);
            if (request.find("ptz.cgi") != std::string::npos) {
                appliance::pause(std::chrono::milliseconds(9900));
                appliance::writeAll(client, "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n");
                return;
            }
            if (request.empty() || !appliance::writeAll(encoder, request))
                return;
        }
        if (sides[1].revents != 0) {
            const std::string answer = received(encoder);
            if (answer.empty() || !appliance::writeAll(client, answer))
                return;
        }
    }
}

TEST(SlowPreset, DoesNotEndTheHealthyPlayer) {
    Appliance decoder;
    const appliance::Encoder encoder("Gate", 0, {}, decoder.logFile() + ".encoder");
    const std::string address = encoder.address();
    const int port = std::stoi(address.substr(address.rfind(':') + 1));
    const Oddity camera([port](int client) { refusePresetsSlowly(client, port); });
    decoder.addSource("Gate", {{"Address", camera.address()}, {"PTZ", "gate"}});
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0, appliance::Seconds(60)));
    EXPECT_EQ(decoder.countInLog("Player exited"), 0U);
    EXPECT_EQ(decoder.countInLog("Player crashed"), 0U);
    EXPECT_EQ(decoder.countInLog("Player existed"), 0U);
    ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    EXPECT_GT(decoder.secondsInLog("-> REQUEST_ENCODER_TYPE", "-> MANUAL_WAIT_FOR_NEW_SELECTION"), 19)
        << "the camera was not slow";
    EXPECT_EQ(decoder.stop(SIGINT), 0);
}

} // namespace
